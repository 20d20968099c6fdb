// "%T": a duration.
//
// Plain, the argument is an int count of seconds, printed with a "d"
// after it ("90d": the suffix is odd and kept so). With "#" it is spelled
// in units from years (365 days) down to seconds: "1h1m1s", "-1m30s", and
// "0s" for nothing. "%lT" points to 32-bit seconds and microseconds (the
// Windows struct timeval) and "%LT" to a struct timespec (64-bit seconds,
// then nanoseconds); both add a fraction of the precision's digits, 6 and 9
// by default, at most 9; precision 0 adds none.
#include "ZBPrintText.h"
#include "qprintfConversions.h"
#include "qprintfEngine.h"

#include "ZBPrint.h"

#include <algorithm>
#include <cstring>

namespace zb::print {
namespace {

struct Unit {
  int64_t seconds;
  char suffix;
};

constexpr Unit kUnits[] = {{31536000, 'y'}, {86400, 'd'}, {3600, 'h'}, {60, 'm'}};

struct Duration {
  int64_t seconds;
  int64_t nanoseconds;
  int fractionDigits; // the default precision; 0: no fraction
};

// Reads the duration the argument describes; false for a null pointer.
bool readDuration(const qprintf_info &info, Duration *out) {
  if (info.length != QPRINTF_LENGTH_LONG && info.length != QPRINTF_LENGTH_LONG_DOUBLE) {
    *out = Duration{static_cast<int32_t>(info.value.integer), 0, 0};
    return true;
  }
  const auto *bytes = static_cast<const unsigned char *>(info.value.pointer);
  if (bytes == nullptr)
    return false;
  if (info.length == QPRINTF_LENGTH_LONG) {
    int32_t pair[2];
    std::memcpy(pair, bytes, sizeof pair);
    *out = Duration{pair[0], int64_t(pair[1]) * 1000, 6};
  } else {
    int64_t seconds;
    int32_t nanoseconds; // the low half of a 64-bit tv_nsec too
    std::memcpy(&seconds, bytes, sizeof seconds);
    std::memcpy(&nanoseconds, bytes + 8, sizeof nanoseconds);
    *out = Duration{seconds, nanoseconds, 9};
  }
  return true;
}

void spellInUnits(BoundedText &text, int64_t seconds) {
  if (seconds < 0)
    text.append('-');
  uint64_t rest = seconds < 0 ? 0 - uint64_t(seconds) : uint64_t(seconds);
  for (const Unit &unit : kUnits) {
    const uint64_t count = rest / uint64_t(unit.seconds);
    if (count == 0)
      continue;
    text.appendFormat("%llu%c", static_cast<unsigned long long>(count), unit.suffix);
    rest %= uint64_t(unit.seconds);
  }
  if (rest != 0 || seconds == 0)
    text.appendFormat("%llus", static_cast<unsigned long long>(rest));
}

} // namespace

int fetchDuration(va_list *arguments, qprintf_info *info) noexcept {
  if (info->length == QPRINTF_LENGTH_LONG || info->length == QPRINTF_LENGTH_LONG_DOUBLE)
    info->value.pointer = va_arg(*arguments, void *);
  else
    info->value.integer = va_arg(*arguments, int);
  return 0;
}

int renderDuration(qprintf_info *info) noexcept {
  Duration duration;
  if (!readDuration(*info, &duration))
    return qprintf_print_from_formatter(info, ZBPrintGetNullString(), -1);
  char buffer[96];
  BoundedText text(buffer, sizeof buffer);
  if (info->flags & QPRINTF_FLAG_ALTERNATE)
    spellInUnits(text, duration.seconds);
  else
    text.appendFormat("%lldd", static_cast<long long>(duration.seconds));

  const int digits = info->precision < 0 ? duration.fractionDigits : std::min(info->precision, 9);
  if (duration.fractionDigits > 0 && digits > 0) {
    uint64_t fraction = duration.nanoseconds < 0 ? 0 - uint64_t(duration.nanoseconds)
                                                 : uint64_t(duration.nanoseconds);
    for (int place = digits; place < 9; ++place)
      fraction /= 10;
    text.appendFormat(".%.*llu", digits, static_cast<unsigned long long>(fraction));
  }
  return qprintf_emit(info, text.text(), text.length());
}

} // namespace zb::print
