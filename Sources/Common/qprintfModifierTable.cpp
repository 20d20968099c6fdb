// The format engine's table of conversions: one modifier per character,
// the built-in conversions from the start and changed afterwards only by
// registration. Characters without a conversion print themselves, which
// is how "%%" prints "%".
//
// The table is constant data rather than filled by start-up code: every
// call reads it, and this way no call has to check first that it is ready.
#include "qprintfConversions.h"
#include "qprintfEngine.h"

#include <clocale>

namespace {

int renderOwnCharacter(qprintf_info *info) noexcept {
  const char character = static_cast<char>(info->conversion);
  return qprintf_emit(info, &character, 1);
}

// Characters the parser reads as part of a directive can never be
// conversions.
bool isRefused(unsigned char conversion) {
  return conversion < 33 || conversion == '#' || conversion == '+' || conversion == '*' ||
         conversion == '.' || conversion == '\\' || (conversion >= '0' && conversion <= '9');
}

struct Builtin {
  const char *characters;
  int count;
  qprintf_fetch_fn fetch;
  qprintf_render_fn render;
};

constexpr Builtin kBuiltins[] = {
    {"cC", 1, zb::format::fetchCharacter, zb::format::renderCharacter},
    {"sS", 1, zb::format::fetchString, zb::format::renderString},
    {"dDiuUxXoO", 1, zb::format::fetchInteger, zb::format::renderInteger},
    {"p", 1, zb::format::fetchInteger, zb::format::renderPointer},
    {"fFgGeEaA", 1, zb::format::fetchFloat, zb::format::renderFloat},
    {"b", 2, zb::print::fetchBitField, zb::print::renderBitField},
    {"M", 1, zb::print::fetchPointer, zb::print::renderHardwareAddress},
    {"m", 1, zb::print::fetchInt, zb::print::renderErrorNumber},
    {"T", 1, zb::print::fetchDuration, zb::print::renderDuration},
    {"Q", 1, zb::print::fetchPointer, zb::print::renderQuotedString},
    {"H", 2, zb::print::fetchPointerAndCount, zb::print::renderHexDump},
    {"Z", 1, zb::print::fetchPointer, zb::print::renderSocketAddress},
};

constexpr std::array<qprintf_modifier, 256> builtinTable() {
  std::array<qprintf_modifier, 256> table{};
  for (qprintf_modifier &entry : table)
    entry = qprintf_modifier{0, nullptr, renderOwnCharacter, nullptr};
  for (const Builtin &builtin : kBuiltins)
    for (const char *c = builtin.characters; *c != '\0'; ++c)
      table[static_cast<unsigned char>(*c)] =
          qprintf_modifier{builtin.count, builtin.fetch, builtin.render, nullptr};
  return table;
}

bool setEnvironmentLocale() {
  // "'" groups digits and picks the decimal point by the locale.
  std::setlocale(LC_ALL, "");
  return true;
}

} // namespace

std::array<qprintf_modifier, 256> qprintf_modifier_table = builtinTable();

void qprintf_builtins_init() noexcept {
  static const bool done = setEnvironmentLocale();
  (void)done;
}

extern "C" int qprintf_modifier_register(unsigned char conversion, int count,
                                         qprintf_fetch_fn fetch, qprintf_render_fn render,
                                         void *userData) noexcept {
  if (isRefused(conversion))
    return 0;
  qprintf_modifier_table[conversion] = qprintf_modifier{count, fetch, render, userData};
  return 1;
}
