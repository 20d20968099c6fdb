// The ASCII runs of the UTF converters, handled a block at a time: most text
// crossing into the system is ASCII, so finding, widening and narrowing its
// runs is where conversion spends its time. Every x86_64 processor has SSE2
// (sixteen bytes a step); processors with AVX2 take 32 bytes a step, chosen
// once at run time from cpuid. Elsewhere the same functions run a byte at a
// time. All of them give the same result; only the step differs.
#pragma once

#include "ZBString.h"

#include <cstddef>
#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#  define ZB_UTF_X86 1
#  include <cpuid.h>
#  include <immintrin.h>
#endif

namespace zb::utf {

// True when the processor and the system both support AVX2 (the system
// must save the 256-bit registers on a thread switch).
inline bool hasAVX2() {
#if defined(ZB_UTF_X86)
  static const bool available = [] {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx) || (ecx & bit_OSXSAVE) == 0 || (ecx & bit_AVX) == 0)
      return false;
    unsigned low = 0, high = 0;
    __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    if ((low & 6) != 6) // XMM and YMM state
      return false;
    return __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) && (ebx & bit_AVX2) != 0;
  }();
  return available;
#else
  return false;
#endif
}

// The length of the run of ASCII bytes at the start of `bytes` (at most
// `length` of them).
inline size_t asciiRunLength(const uint8_t *bytes, size_t length) {
  size_t run = 0;
#if defined(ZB_UTF_X86)
  for (; length - run >= 16; run += 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + run));
    const unsigned highBits = static_cast<unsigned>(_mm_movemask_epi8(block));
    if (highBits != 0)
      return run + static_cast<size_t>(__builtin_ctz(highBits));
  }
#endif
  while (run < length && bytes[run] < 0x80)
    ++run;
  return run;
}

#if defined(ZB_UTF_X86)
// Mask bits, two per unit, set for the ASCII units of eight units.
inline unsigned asciiUnitBits(__m128i block) {
  const __m128i nonASCIIBits = _mm_set1_epi16(static_cast<short>(0xFF80));
  return static_cast<unsigned>(
      _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(block, nonASCIIBits), _mm_setzero_si128())));
}
#endif

// The length of the run of ASCII units at the start of `units`.
inline size_t asciiRunLength(const ZBWChar *units, size_t length) {
  size_t run = 0;
#if defined(ZB_UTF_X86)
  for (; length - run >= 8; run += 8) {
    const unsigned asciiBits =
        asciiUnitBits(_mm_loadu_si128(reinterpret_cast<const __m128i *>(units + run)));
    if (asciiBits != 0xFFFF)
      return run + static_cast<size_t>(__builtin_ctz(~asciiBits)) / 2;
  }
#endif
  while (run < length && units[run] < 0x80)
    ++run;
  return run;
}

// Widens the run of ASCII bytes at the start of `bytes` (at most `length`)
// into `out`, which has room for `length` units; returns the run's length.
// Nothing is stored past the run.
inline size_t widenASCIIRun(ZBWChar *out, const uint8_t *bytes, size_t length) {
  size_t done = 0;
#if defined(ZB_UTF_X86)
  const __m128i zero = _mm_setzero_si128();
  for (; length - done >= 16; done += 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + done));
    if (_mm_movemask_epi8(block) != 0)
      break;
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out + done), _mm_unpacklo_epi8(block, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out + done + 8), _mm_unpackhi_epi8(block, zero));
  }
#endif
  for (; done < length && bytes[done] < 0x80; ++done)
    out[done] = bytes[done];
  return done;
}

// Narrows the run of ASCII units at the start of `units` (at most `length`)
// into `out`, which has room for `length` bytes; returns the run's length.
inline size_t narrowASCIIRun(uint8_t *out, const ZBWChar *units, size_t length) {
  size_t done = 0;
#if defined(ZB_UTF_X86)
  for (; length - done >= 8; done += 8) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(units + done));
    if (asciiUnitBits(block) != 0xFFFF)
      break;
    _mm_storel_epi64(reinterpret_cast<__m128i *>(out + done), _mm_packus_epi16(block, block));
  }
#endif
  for (; done < length && units[done] < 0x80; ++done)
    out[done] = static_cast<uint8_t>(units[done]);
  return done;
}

#if defined(ZB_UTF_X86)
// As widenASCIIRun, 32 bytes a step; the last block of the run takes the
// sixteen-byte way.
__attribute__((target("avx2"))) inline size_t widenASCIIRunAVX2(ZBWChar *out, const uint8_t *bytes,
                                                                size_t length) {
  size_t done = 0;
  for (; length - done >= 32; done += 32) {
    const __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(bytes + done));
    if (_mm256_movemask_epi8(block) != 0)
      break;
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + done),
                        _mm256_cvtepu8_epi16(_mm256_castsi256_si128(block)));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + done + 16),
                        _mm256_cvtepu8_epi16(_mm256_extracti128_si256(block, 1)));
  }
  return done + widenASCIIRun(out + done, bytes + done, length - done);
}

// As narrowASCIIRun, 32 units a step.
__attribute__((target("avx2"))) inline size_t narrowASCIIRunAVX2(uint8_t *out, const ZBWChar *units,
                                                                 size_t length) {
  size_t done = 0;
  const __m256i nonASCIIBits = _mm256_set1_epi16(static_cast<short>(0xFF80));
  for (; length - done >= 32; done += 32) {
    const __m256i low = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(units + done));
    const __m256i high = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(units + done + 16));
    if (!_mm256_testz_si256(_mm256_or_si256(low, high), nonASCIIBits))
      break;
    // The pack works within 128-bit lanes: put the four quarters in order.
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(low, high), 0xD8);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + done), packed);
  }
  return done + narrowASCIIRun(out + done, units + done, length - done);
}
#endif

} // namespace zb::utf
