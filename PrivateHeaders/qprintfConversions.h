// The fetch and render functions of the format engine's built-in
// conversions, which the modifier table registers at load.
#pragma once

#include "qprintf.h"

#include <cstdarg>

namespace zb::format {

// d D i u U x X o O, and p.
int fetchInteger(va_list *arguments, qprintf_info *info) noexcept;
int renderInteger(qprintf_info *info) noexcept;
int renderPointer(qprintf_info *info) noexcept;
// f F g G e E a A.
int fetchFloat(va_list *arguments, qprintf_info *info) noexcept;
int renderFloat(qprintf_info *info) noexcept;
// c C, s S.
int fetchCharacter(va_list *arguments, qprintf_info *info) noexcept;
int renderCharacter(qprintf_info *info) noexcept;
int fetchString(va_list *arguments, qprintf_info *info) noexcept;
int renderString(qprintf_info *info) noexcept;

} // namespace zb::format

namespace zb::print {

// The library's own conversions (ZBPrint.h).
int fetchBitField(va_list *arguments, qprintf_info *info) noexcept;
int renderBitField(qprintf_info *info) noexcept;
int fetchPointer(va_list *arguments, qprintf_info *info) noexcept;
int fetchPointerAndCount(va_list *arguments, qprintf_info *info) noexcept;
int fetchInt(va_list *arguments, qprintf_info *info) noexcept;
int renderHardwareAddress(qprintf_info *info) noexcept;
int renderErrorNumber(qprintf_info *info) noexcept;
int fetchDuration(va_list *arguments, qprintf_info *info) noexcept;
int renderDuration(qprintf_info *info) noexcept;
int renderQuotedString(qprintf_info *info) noexcept;
int renderHexDump(qprintf_info *info) noexcept;
int renderSocketAddress(qprintf_info *info) noexcept;

} // namespace zb::print
