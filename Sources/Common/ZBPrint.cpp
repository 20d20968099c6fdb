// Client conversions: ZBPrintRegisterModifier and the emit functions that
// their render callbacks write with.
//
// A client's callbacks take a context (the argument cursor while fetching,
// the conversion's info) and the client's own user data. The engine calls
// trampolines registered in its table, which look the client's callbacks up
// by conversion character in a table of their own and build the context.
#include "ZBPrint.h"

#include "ZBAlloc.h"
#include "ZBString.h"
#include "qprintfEngine.h"

#include <cstring>

namespace {

struct ClientModifier {
  ZBPrintModifierFn fetch;
  ZBPrintModifierFn render;
  void *userData;
};

ClientModifier sClientModifiers[256];

int fetchTrampoline(va_list *arguments, qprintf_info *info) noexcept {
  const ClientModifier &client = sClientModifiers[info->conversion];
  ZBPrintModifierContext context{arguments, info};
  return client.fetch(&context, client.userData);
}

int renderTrampoline(qprintf_info *info) noexcept {
  const ClientModifier &client = sClientModifiers[info->conversion];
  ZBPrintModifierContext context{nullptr, info};
  return client.render(&context, client.userData);
}

bool canEmit(const ZBPrintModifierContext *context) {
  return context != nullptr && context->info != nullptr && context->info->sink != nullptr;
}

} // namespace

extern "C" bool ZBPrintRegisterModifier(char conversion, int count, ZBPrintModifierFn fetch,
                                        ZBPrintModifierFn render, void *userData) noexcept {
  const auto character = static_cast<unsigned char>(conversion);
  sClientModifiers[character] = ClientModifier{fetch, render, userData};
  // Without a fetch callback the engine skips the arguments itself, so the
  // ones after them still line up; without a render callback nothing is
  // printed.
  return qprintf_modifier_register(character, count, fetch ? fetchTrampoline : nullptr,
                                   render ? renderTrampoline : nullptr, nullptr) == 1;
}

extern "C" const char *ZBPrintModifierContextEmitCharBuf(ZBPrintModifierContext *context,
                                                         const char *buffer,
                                                         size_t length) noexcept {
  if (buffer == nullptr || length == 0 || !canEmit(context))
    return buffer;
  qprintf_emit(context->info, buffer, length);
  return buffer + length;
}

extern "C" int ZBPrintModifierContextEmitString(ZBPrintModifierContext *context,
                                                const char *text) noexcept {
  if (text == nullptr || text[0] == '\0' || !canEmit(context))
    return 0;
  return qprintf_emit(context->info, text, std::strlen(text));
}

extern "C" int ZBPrintModifierContextEmitFormattedString(ZBPrintModifierContext *context,
                                                         const char *format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  const int result = ZBPrintModifierContextEmitFormattedStringAndArguments(context, format,
                                                                           arguments);
  va_end(arguments);
  return result;
}

extern "C" int ZBPrintModifierContextEmitFormattedStringAndArguments(
    ZBPrintModifierContext *context, const char *format, va_list arguments) noexcept {
  if (format == nullptr || !canEmit(context))
    return 0;
  char *text = ZBCStringCreateWithFormatAndArguments(nullptr, format, arguments);
  if (text == nullptr)
    return 0;
  const int result = ZBPrintModifierContextEmitString(context, text);
  _ZBFreeWithZone(nullptr, text);
  return result;
}

extern "C" const char *ZBPrintGetNullString(void) noexcept { return "(null)"; }
