// The UTF converters against the system's own: UTF-8 to UTF-16 of ASCII
// text at a few sizes, of mostly-ASCII European text, of Greek with ASCII
// spaces and punctuation and of CJK, and UTF-16 back to UTF-8, against MultiByteToWideChar and
// WideCharToMultiByte with CP_UTF8. Natively, where there is no system converter, a plain widening
// loop stands in as the baseline.
#include "ZBBench.h"

#include "Zenbor.h"

#include <string>
#include <vector>

namespace {

std::string asciiText(size_t size) {
  static const char kWords[] = "The quick brown fox jumps over the lazy dog. 0123456789\n";
  std::string text;
  while (text.size() < size)
    text += kWords;
  text.resize(size);
  return text;
}

// Words drawn pseudo-randomly so that no short period lets the branch
// predictors learn the text, as they would with one sentence repeated.
template <size_t kWordCount>
std::string wordText(const char *const (&words)[kWordCount], size_t size) {
  std::string text;
  uint32_t seed = 12345;
  while (true) {
    seed = seed * 1103515245u + 12345u;
    const std::string word =
        std::string(words[(seed >> 16) % kWordCount]) + (((seed >> 8) & 7) == 0 ? ". " : " ");
    if (text.size() + word.size() > size)
      return text;
    text += word;
  }
}

// French prose, about one two-byte character in ten bytes.
std::string europeanText(size_t size) {
  static const char *const kWords[] = {"l'\xC3\xA9t\xC3\xA9",
                                       "o\xC3\xB9",
                                       "la",
                                       "for\xC3\xAAt",
                                       "br\xC3\xBBlait",
                                       "\xC3\xA0",
                                       "c\xC3\xB4t\xC3\xA9",
                                       "du",
                                       "lac",
                                       "et",
                                       "les",
                                       "enfants",
                                       "jouaient",
                                       "pr\xC3\xA8s",
                                       "de",
                                       "l'\xC3\xA9"
                                       "cole",
                                       "fen\xC3\xAAtre",
                                       "tr\xC3\xA8s",
                                       "beau",
                                       "temps"};
  return wordText(kWords, size);
}

// Greek prose: two-byte letters between ASCII spaces and full stops.
std::string greekText(size_t size) {
  static const char *const kWords[] = {u8"\u03b7",
                                       u8"\u03b3\u03bb\u03ce\u03c3\u03c3\u03b1",
                                       u8"\u03c4\u03bf\u03c5",
                                       u8"\u03ba\u03b1\u03b9",
                                       u8"\u03bf\u03b9",
                                       u8"\u03ac\u03bd\u03b8\u03c1\u03c9\u03c0\u03bf\u03b9",
                                       u8"\u03bc\u03ad\u03c1\u03b1",
                                       u8"\u03b8\u03ac\u03bb\u03b1\u03c3\u03c3\u03b1",
                                       u8"\u03c3\u03c0\u03af\u03c4\u03b9,",
                                       u8"\u03b4\u03ad\u03bd\u03c4\u03c1\u03bf"};
  return wordText(kWords, size);
}

// CJK: three-byte characters in runs, with an occasional ASCII space.
std::string cjkText(size_t size) {
  static const char *const kWords[] = {u8"\u6587\u5b57\u5217",
                                       u8"\u6771\u4eac",
                                       u8"\u65e5\u672c\u8a9e\u306e\u6587\u7ae0",
                                       u8"\u5909\u63db",
                                       u8"\u4e2d\u6587\u5b57\u7b26",
                                       u8"\u5e73\u4eee\u540d\u3068\u6f22\u5b57",
                                       u8"\u8a66\u9a13",
                                       u8"\u6a19\u6e96"};
  return wordText(kWords, size);
}

#ifdef _WIN32
int systemToUTF16(const std::string &text, wchar_t *out, int capacity) {
  return MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out,
                             capacity);
}
int systemToUTF8(const std::vector<ZBWChar> &units, char *out, int capacity) {
  return WideCharToMultiByte(CP_UTF8, 0, units.data(), static_cast<int>(units.size()), out,
                             capacity, nullptr, nullptr);
}
#else
// No system converter here: a plain loop that widens bytes (right for ASCII
// only) is the baseline.
int systemToUTF16(const std::string &text, ZBWChar *out, int capacity) {
  int count = 0;
  for (char byte : text) {
    if (count < capacity)
      out[count] = static_cast<uint8_t>(byte);
    ++count;
  }
  return count;
}
int systemToUTF8(const std::vector<ZBWChar> &units, char *out, int capacity) {
  int count = 0;
  for (ZBWChar unit : units) {
    if (count < capacity)
      out[count] = static_cast<char>(unit);
    ++count;
  }
  return count;
}
#endif

void compareToUTF16(const char *name, const std::string &text, int64_t iterations) {
  std::vector<ZBWChar> out(text.size());
  zbbench::compare(
      name,
      [&](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          zbbench::keep(ZBUTF8ToUTF16(out.data(), out.size(), text.data(), text.size(),
                                      ZBUTFFlagLatin1Fallback, nullptr));
          zbbench::keep(out[0]);
        }
      },
      [&](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          zbbench::keep(systemToUTF16(text, out.data(), static_cast<int>(out.size())));
          zbbench::keep(out[0]);
        }
      },
      {15, iterations});
}

void compareToUTF8(const char *name, const std::string &text, int64_t iterations) {
  std::vector<ZBWChar> units(text.size());
  units.resize(ZBUTF8ToUTF16(units.data(), units.size(), text.data(), text.size(), 0, nullptr));
  std::vector<char> out(3 * units.size());
  zbbench::compare(
      name,
      [&](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          zbbench::keep(ZBUTF16ToUTF8(out.data(), out.size(), units.data(), units.size(), 0,
                                      nullptr));
          zbbench::keep(out[0]);
        }
      },
      [&](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          zbbench::keep(systemToUTF8(units, out.data(), static_cast<int>(out.size())));
          zbbench::keep(out[0]);
        }
      },
      {15, iterations});
}

} // namespace

int main() {
  zbbench::printHeader();
#ifdef _WIN32
  std::printf("# raw: MultiByteToWideChar / WideCharToMultiByte (CP_UTF8)\n");
#else
  std::printf("# raw: a plain widening / narrowing loop (no system converter here)\n");
#endif
  compareToUTF16("UTF-8 to UTF-16, ASCII 16 B", asciiText(16), 2000000);
  compareToUTF16("UTF-8 to UTF-16, ASCII 256 B", asciiText(256), 500000);
  compareToUTF16("UTF-8 to UTF-16, ASCII 4 KiB", asciiText(4096), 40000);
  compareToUTF16("UTF-8 to UTF-16, French 4 KiB", europeanText(4096), 20000);
  compareToUTF16("UTF-8 to UTF-16, Greek 4 KiB", greekText(4096), 20000);
  compareToUTF16("UTF-8 to UTF-16, CJK 4 KiB", cjkText(4096), 20000);
  compareToUTF8("UTF-16 to UTF-8, ASCII 256 B", asciiText(256), 500000);
  compareToUTF8("UTF-16 to UTF-8, ASCII 4 KiB", asciiText(4096), 40000);
  compareToUTF8("UTF-16 to UTF-8, French 4 KiB", europeanText(4096), 20000);
  compareToUTF8("UTF-16 to UTF-8, Greek 4 KiB", greekText(4096), 20000);
  compareToUTF8("UTF-16 to UTF-8, CJK 4 KiB", cjkText(4096), 20000);
  return 0;
}
