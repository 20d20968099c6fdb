// "%Q": a string made safe for a context, by the flags:
//   none  backslash escapes: \a \b \t \n \v \f \r \\ \' \" by name, other
//         bytes outside printable ASCII in octal, "\303"; the space flag
//         writes them as "\xc3" instead, "'" as "\u00c3"; "#" puts double
//         quotes around the result
//   "+"   URL percent-encoding of "%/\?<>&:*@#", space and the bytes outside
//         printable ASCII, "%2F"
//   "+#"  XML entities: &apos; &quot; &amp; &lt; &gt;, and "&#x0a;" for
//         bytes outside printable ASCII
// The precision, when given, is the exact number of bytes to quote (zeros
// included, so binary data quotes too); precision 0 quotes nothing.
#include "ZBPrintText.h"
#include "qprintfConversions.h"
#include "qprintfEngine.h"

#include "ZBAlloc.h"
#include "ZBPrint.h"

#include <cstring>

namespace zb::print {
namespace {

// The longest output of one byte: "&apos;", "&#x0a;", "\u00c3".
constexpr size_t kMaxBytesPerInput = 6;

bool isPrintable(unsigned char byte) { return byte >= 0x20 && byte < 0x7F; }

const char *namedEscape(unsigned char byte) {
  switch (byte) {
  case '\a':
    return "\\a";
  case '\b':
    return "\\b";
  case '\t':
    return "\\t";
  case '\n':
    return "\\n";
  case '\v':
    return "\\v";
  case '\f':
    return "\\f";
  case '\r':
    return "\\r";
  case '\\':
    return "\\\\";
  case '\'':
    return "\\'";
  case '"':
    return "\\\"";
  default:
    return nullptr;
  }
}

const char *entity(unsigned char byte) {
  switch (byte) {
  case '\'':
    return "&apos;";
  case '"':
    return "&quot;";
  case '&':
    return "&amp;";
  case '<':
    return "&lt;";
  case '>':
    return "&gt;";
  default:
    return nullptr;
  }
}

void backslashEscape(BoundedText &text, unsigned char byte, uint32_t flags) {
  if (const char *escape = namedEscape(byte)) {
    text.append(escape);
  } else if (isPrintable(byte)) {
    text.append(static_cast<char>(byte));
  } else if (flags & QPRINTF_FLAG_GROUPING) {
    text.append("\\u00");
    text.appendHexByte(byte, false);
  } else if (flags & QPRINTF_FLAG_SPACE) {
    text.append("\\x");
    text.appendHexByte(byte, false);
  } else {
    const char octal[4] = {'\\', char('0' + (byte >> 6)), char('0' + ((byte >> 3) & 7)),
                           char('0' + (byte & 7))};
    text.append(octal, 4);
  }
}

void percentEncode(BoundedText &text, unsigned char byte) {
  if (isPrintable(byte) && byte != ' ' && std::strchr("%/\\?<>&:*@#", byte) == nullptr) {
    text.append(static_cast<char>(byte));
    return;
  }
  text.append('%');
  text.appendHexByte(byte, true);
}

void xmlEscape(BoundedText &text, unsigned char byte) {
  if (const char *name = entity(byte)) {
    text.append(name);
  } else if (isPrintable(byte)) {
    text.append(static_cast<char>(byte));
  } else {
    text.append("&#x");
    text.appendHexByte(byte, false);
    text.append(';');
  }
}

} // namespace

int renderQuotedString(qprintf_info *info) noexcept {
  const auto *bytes = static_cast<const unsigned char *>(info->value.pointer);
  if (bytes == nullptr)
    return qprintf_print_from_formatter(info, ZBPrintGetNullString(), -1);
  const size_t length = info->precision >= 0 ? size_t(info->precision)
                                             : std::strlen(reinterpret_cast<const char *>(bytes));
  if (length == 0)
    return qprintf_emit(info, "", 0);
  if (length > (SIZE_MAX - 3) / kMaxBytesPerInput)
    return 0;
  const size_t capacity = length * kMaxBytesPerInput + 3; // quotes and the zero
  auto *buffer = static_cast<char *>(_ZBAllocWithZoneAndDesc(nullptr, capacity, "quote_string"));
  if (buffer == nullptr)
    return 0;

  const uint32_t flags = info->flags;
  const bool plus = (flags & QPRINTF_FLAG_PLUS) != 0;
  const bool alternate = (flags & QPRINTF_FLAG_ALTERNATE) != 0;
  BoundedText text(buffer, capacity);
  const bool quoted = !plus && alternate;
  if (quoted)
    text.append('"');
  for (size_t i = 0; i < length; ++i) {
    if (!plus)
      backslashEscape(text, bytes[i], flags);
    else if (alternate)
      xmlEscape(text, bytes[i]);
    else
      percentEncode(text, bytes[i]);
  }
  if (quoted)
    text.append('"');
  const int result = qprintf_emit(info, text.text(), text.length());
  _ZBFreeWithZone(nullptr, buffer);
  return result;
}

} // namespace zb::print
