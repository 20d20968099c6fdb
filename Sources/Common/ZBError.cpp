// The error space's descriptions and the status-word formatter for log
// messages.
#include "ZBError.h"

#include <cstdio>

namespace {

// Indexed by the negated code; the null entry after -61 ends the table, so
// the undescribed socket codes (-62, -63) read "Unknown Error" from here.
constexpr const char *kDescriptions[] = {
#define ZB_DESCRIPTION_ENTRY(name, code, text) text,
    ZB_ERROR_DESCRIBED_MAP(ZB_DESCRIPTION_ENTRY)
#undef ZB_DESCRIPTION_ENTRY
    nullptr,
};
constexpr int kDescriptionCount = sizeof kDescriptions / sizeof kDescriptions[0];
static_assert(kDescriptionCount == -ZBErrorLowestDescribed + 2,
              "the description list must run from 0 to -61 without gaps");

constexpr const char kUnknownError[] = "Unknown Error";
constexpr const char kGenericError[] = "Generic Error";

} // namespace

extern "C" const char *ZBErrorGetDescription(ZBError code) noexcept {
  if (code > 0 || code < ZBErrorGeneric)
    return kUnknownError;
  if (code < ZBErrorSocketTypeUnsupported)
    return kGenericError;
  // -63 passes the range test but lies past the table's null terminator.
  const int index = -code;
  if (index >= kDescriptionCount || kDescriptions[index] == nullptr)
    return kUnknownError;
  return kDescriptions[index];
}

extern "C" ZBOSStatusText _ZBFormatOSStatus(uint32_t status) noexcept {
  ZBOSStatusText result{};
  const unsigned char bytes[4] = {
      static_cast<unsigned char>(status >> 24), static_cast<unsigned char>(status >> 16),
      static_cast<unsigned char>(status >> 8), static_cast<unsigned char>(status)};
  // Printable ASCII only: the runtime's isprint answers by code page for
  // bytes above 0x7f.
  bool printable = true;
  for (unsigned char byte : bytes)
    printable = printable && byte >= 0x20 && byte < 0x7f;
  if (printable)
    std::snprintf(result.text, sizeof result.text, "%c%c%c%c", bytes[0], bytes[1], bytes[2], bytes[3]);
  else
    std::snprintf(result.text, sizeof result.text, "%#08x", static_cast<unsigned>(status));
  return result;
}
