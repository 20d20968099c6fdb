// The format engine's table of conversions: one modifier per character,
// filled at load with the built-in conversions and changed afterwards only
// by registration. Characters without a conversion print themselves, which
// is how "%%" prints "%".
#include "qprintfConversions.h"
#include "qprintfEngine.h"

#include <clocale>

qprintf_modifier qprintf_modifier_table[256];

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

const Builtin kBuiltins[] = {
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

bool fillTable() {
  // The environment's locale: "'" groups digits and picks the decimal
  // point by it.
  std::setlocale(LC_ALL, "");
  for (qprintf_modifier &entry : qprintf_modifier_table)
    entry = qprintf_modifier{0, nullptr, renderOwnCharacter, nullptr};
  for (const Builtin &builtin : kBuiltins)
    for (const char *c = builtin.characters; *c != '\0'; ++c)
      qprintf_modifier_table[static_cast<unsigned char>(*c)] =
          qprintf_modifier{builtin.count, builtin.fetch, builtin.render, nullptr};
  return true;
}

} // namespace

void qprintf_builtins_init() noexcept {
  // Once, also when formatting or a registration comes first (from another
  // module's static constructor): the guard makes latecomers wait.
  static const bool filled = fillTable();
  (void)filled;
}

extern "C" int qprintf_modifier_register(unsigned char conversion, int count,
                                         qprintf_fetch_fn fetch, qprintf_render_fn render,
                                         void *userData) noexcept {
  if (isRefused(conversion))
    return 0;
  qprintf_builtins_init();
  qprintf_modifier_table[conversion] = qprintf_modifier{count, fetch, render, userData};
  return 1;
}
