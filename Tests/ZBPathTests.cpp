// The path model and the text operations on paths, in all three styles:
// parsing (components, flags, prefixes, hosts), writing back with
// percent-decoding, growth of the component block, appending, normalising,
// conversion and concatenation, directory and base names, the long-path
// form, the splitter's errno answers, and malformed input. Platform-neutral:
// runs natively too.
#include "ZBTestSupport.h"

#include "ZBPathSplit.h"
#include "Zenbor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr ZBPathStyle kPOSIX = ZBPathStylePOSIX;
constexpr ZBPathStyle kDOS = ZBPathStyleDOS;
constexpr ZBPathStyle kURL = ZBPathStyleFileURL;
constexpr ZBPathStyle kStyles[] = {kPOSIX, kDOS, kURL};

std::optional<std::string> take(char *text) {
  if (text == nullptr)
    return std::nullopt;
  std::string copy(text);
  _ZBFree(text);
  return copy;
}

std::vector<std::string> componentsOf(const ZBPathInfo *info) {
  std::vector<std::string> components;
  ZBPathComponent component{};
  for (int32_t index = 0; ZBPathInfoGetComponent(info, index, &component); ++index)
    components.emplace_back(component.characters, component.length);
  return components;
}

// A component list written compactly: "a|b|c" ("" for none).
std::vector<std::string> split(const std::string &list) {
  std::vector<std::string> parts;
  if (list.empty())
    return parts;
  size_t start = 0;
  for (size_t bar = list.find('|'); bar != std::string::npos; bar = list.find('|', start)) {
    parts.push_back(list.substr(start, bar - start));
    start = bar + 1;
  }
  parts.push_back(list.substr(start));
  return parts;
}

std::string written(const ZBPathInfo *info, ZBPathStyle style) {
  return take(ZBPathInfoCopyReconstructingWithStyle(info, style)).value_or("<null>");
}

struct ParseCase {
  ZBPathStyle style;
  const char *text;
  const char *components;
  bool absolute;
  bool trailing;
  const char *posix;
  const char *dos;
  const char *url;
};

TEST(ZBPathInfo, ParsesAndWritesBackInEachStyle) {
  const ParseCase cases[] = {
      // style  text                       components        abs    trail  POSIX        DOS URL
      {kPOSIX, "", "", false, false, "", "", ""},
      {kPOSIX, "/", "", true, false, "/", "\\", "file://localhost/"},
      {kPOSIX, "a//b/", "a|b", false, true, "a/b", "a\\b", "a/b"},
      {kPOSIX, "/usr/lib", "usr|lib", true, false, "/usr/lib", "\\usr\\lib",
       "file://localhost/usr/lib"},
      {kPOSIX, "C:/x/y", "C:|x|y", true, false, "C:/x/y", "C:\\x\\y", "file://localhost/C:/x/y"},
      {kPOSIX, "/C:/x", "C:|x", true, false, "C:/x", "C:\\x", "file://localhost/C:/x"},
      {kPOSIX, "C:x", "C:x", false, false, "C:x", "C:x", "C:x"},
      {kPOSIX, "C:", "C:", false, false, "C:", "C:", "C:"},
      {kPOSIX, "a\\b", "a\\b", false, false, "a\\b", "a\\b", "a\\b"},
      {kPOSIX, "//", "", true, false, "/", "\\", "file://localhost/"},
      {kDOS, "C:\\x\\y", "C:|x|y", true, false, "C:/x/y", "C:\\x\\y", "file://localhost/C:/x/y"},
      {kDOS, "C:/x", "C:|x", true, false, "C:/x", "C:\\x", "file://localhost/C:/x"},
      {kDOS, "C:\\", "C:", true, false, "C:", "C:\\", "file://localhost/C:"},
      {kDOS, "C:", "C:", false, false, "C:", "C:", "C:"},
      {kDOS, "C:rel\\x", "C:|rel|x", false, false, "C:/rel/x", "C:rel\\x", "C:/rel/x"},
      {kDOS, "\\\\server\\share\\d", "server|share|d", true, false, "/share/d",
       "\\\\server\\share\\d", "file://server/share/d"},
      {kDOS, "\\\\?\\C:\\long\\p", "C:|long|p", true, false, "C:/long/p", "C:\\long\\p",
       "file://localhost/C:/long/p"},
      {kDOS, "\\\\?\\UNC\\srv\\share\\x", "srv|share|x", true, false, "/share/x",
       "\\\\srv\\share\\x", "file://srv/share/x"},
      {kDOS, "\\\\?\\unc\\srv", "srv", true, false, "/", "\\\\srv", "file://srv/"},
      {kDOS, "\\\\.\\pipe\\name", ".|pipe|name", true, false, "/pipe/name", "\\\\.\\pipe\\name",
       "file://./pipe/name"},
      {kDOS, "\\\\.\\D:\\x", "D:|x", true, false, "D:/x", "D:\\x", "file://localhost/D:/x"},
      {kDOS, "a/b\\c\\", "a|b|c", false, true, "a/b/c", "a\\b\\c", "a/b/c"},
      {kDOS, "\\x", "x", true, false, "/x", "\\x", "file://localhost/x"},
      {kDOS, "\\\\x", "x", true, false, "/x", "\\x", "file://localhost/x"},
      {kDOS, "\\\\\\x\\y", "x|y", true, false, "/x/y", "\\x\\y", "file://localhost/x/y"},
      {kDOS, "\\\\srv", "srv", true, false, "/srv", "\\srv", "file://localhost/srv"},
      {kURL, "file://localhost/a/b", "a|b", true, false, "/a/b", "\\a\\b", "file://localhost/a/b"},
      {kURL, "file://host/a", "host|a", true, false, "/a", "\\\\host\\a", "file://host/a"},
      {kURL, "file:///C:/x", "C:|x", true, false, "C:/x", "C:\\x", "file://localhost/C:/x"},
      {kURL, "file:///", "", true, false, "/", "\\", "file://localhost/"},
      {kURL, "file://localhost", "", true, false, "/", "\\", "file://localhost/"},
      {kURL, "file://localhost/a%20b/", "a%20b", true, true, "/a b", "\\a b",
       "file://localhost/a b"},
      {kURL, "file:///%43%3a/x", "%43%3a|x", true, false, "C:/x", "C:\\x", "file://localhost/C:/x"},
      {kURL, "a%20b/c%2fd", "a%20b|c%2fd", false, false, "a b/c/d", "a b\\c/d", "a b/c/d"},
      {kURL, "x%1gy/%ZZ/a%4/%", "x%1gy|%ZZ|a%4|%", false, false, "x y/S/a%4/%", "x y\\S\\a%4\\%",
       "x y/S/a%4/%"},
      {kURL, "file://host", "host", true, false, "/", "\\\\host", "file://host/"},
  };
  for (const ParseCase &c : cases) {
    SCOPED_TRACE(testing::Message() << "style " << c.style << " \"" << c.text << "\"");
    ZBPathInfo *info = ZBPathInfoCreateWithStyle(c.style, c.text, false);
    ASSERT_NE(nullptr, info);
    EXPECT_EQ(split(c.components), componentsOf(info));
    EXPECT_EQ(static_cast<int32_t>(split(c.components).size()), ZBPathInfoGetComponentCount(info));
    EXPECT_EQ(c.absolute, ZBPathInfoIsAbsolute(info));
    EXPECT_EQ(c.trailing, ZBPathInfoHasTrailingSeparator(info));
    EXPECT_EQ(c.posix, written(info, kPOSIX));
    EXPECT_EQ(c.dos, written(info, kDOS));
    EXPECT_EQ(c.url, written(info, kURL));
    ZBPathInfoFree(info);
  }
}

TEST(ZBPathInfo, URLFormsThatFailOrWarn) {
  EXPECT_EQ(nullptr, ZBPathInfoCreateWithStyle(kURL, "file://", false));
  EXPECT_EQ(nullptr, ZBPathInfoCreateWithStyle(kURL, "file:/", true));
  EXPECT_EQ(nullptr, ZBPathInfoCreateWithStyle(kURL, nullptr, false));
  EXPECT_EQ(nullptr, ZBPathInfoCreate(nullptr, true));

  // "file:/" with one slash warns once per parse; the line keeps its "%s".
  const std::string warning = "Invalid file URL '%s' passed to ZBPathInfoCreate()";
  const size_t before = zbtest::occurrences(zbtest::logRing(), warning);
  ZBPathInfo *info = ZBPathInfoCreateWithStyle(kURL, "file:/a/b", true);
  ASSERT_NE(nullptr, info);
  const std::string ring = zbtest::logRing();
  EXPECT_EQ(before + 1, zbtest::occurrences(ring, warning));
  EXPECT_NE(std::string::npos, ring.find("ZBPathInfoCreateWithStyle")) << ring;
  EXPECT_EQ(std::string::npos, ring.find("/a/b")) << "the path is not shown";
  EXPECT_TRUE(ZBPathInfoIsAbsolute(info));
  EXPECT_EQ((std::vector<std::string>{"a", "b"}), componentsOf(info));
  EXPECT_EQ("file://localhost/a/b", written(info, kURL));
  ZBPathInfoFree(info);
  // Not a URL at all: no warning, a relative path.
  info = ZBPathInfoCreateWithStyle(kURL, "file:a", false);
  EXPECT_FALSE(ZBPathInfoIsAbsolute(info));
  EXPECT_EQ(before + 1, zbtest::occurrences(zbtest::logRing(), warning));
  ZBPathInfoFree(info);
}

TEST(ZBPathInfoDeathTest, UnknownStyleIsFatal) {
  const std::string lines =
      zbtest::logOfDyingProcess([] { ZBPathInfoCreateWithStyle(3, "/a", false); });
  EXPECT_NE(std::string::npos, lines.find("ZBPathInfoCreateWithStyle")) << lines;
  EXPECT_NE(std::string::npos, lines.find("Unknown path style 3")) << lines;
}

TEST(ZBPathInfo, CopyOptionKeepsComponentsValid) {
  std::string text = "/one/two";
  ZBPathInfo *copied = ZBPathInfoCreate(text.c_str(), true);
  ZBPathInfo *borrowed = ZBPathInfoCreate(text.c_str(), false);
  text.replace(0, text.size(), "/xxx/yyy");
  EXPECT_EQ("/one/two", written(copied, kPOSIX));
  EXPECT_EQ("/xxx/yyy", written(borrowed, kPOSIX));
  ZBPathInfoFree(copied);
  ZBPathInfoFree(borrowed);
}

// The block holds 8, then 18, then 38 components; each boundary, and a block
// whose first records were removed, keeps every component.
TEST(ZBPathInfo, GrowsAcrossEveryBlockBoundary) {
  for (int count : {1, 7, 8, 9, 17, 18, 19, 37, 38, 39, 77, 500}) {
    SCOPED_TRACE(count);
    std::string text;
    std::vector<std::string> expected;
    for (int index = 0; index < count; ++index) {
      expected.push_back("c" + std::to_string(index));
      text += "/" + expected.back();
    }
    ZBPathInfo *info = ZBPathInfoCreate(text.c_str(), false);
    ASSERT_NE(nullptr, info);
    EXPECT_EQ(expected, componentsOf(info));
    EXPECT_EQ(text, written(info, kPOSIX));

    // Drop two from the front, then grow by appending the info to itself.
    ZBPathInfoRemoveFirstComponent(info);
    ZBPathInfoRemoveFirstComponent(info);
    expected.erase(expected.begin(), expected.begin() + std::min(count, 2));
    ASSERT_TRUE(ZBPathInfoAppendInfo(info, info));
    std::vector<std::string> doubled = expected;
    doubled.insert(doubled.end(), expected.begin(), expected.end());
    EXPECT_EQ(doubled, componentsOf(info));
    ZBPathInfoFree(info);
  }
}

TEST(ZBPathInfo, RemovesComponentsAndTheNodeName) {
  ZBPathInfo *info = ZBPathInfoCreateWithStyle(kDOS, "\\\\srv\\a\\b", false);
  ZBPathInfoRemoveLastComponent(info);
  EXPECT_EQ("\\\\srv\\a", written(info, kDOS));
  ZBPathInfoRemoveFirstComponent(info); // the server goes, and with it the node name
  EXPECT_EQ("\\a", written(info, kDOS));
  ZBPathInfoRemoveLastComponent(info);
  ZBPathInfoRemoveLastComponent(info); // nothing left: no effect
  ZBPathInfoRemoveFirstComponent(info);
  EXPECT_EQ(0, ZBPathInfoGetComponentCount(info));
  ZBPathComponent component{};
  EXPECT_FALSE(ZBPathInfoGetComponent(info, 0, &component));
  EXPECT_FALSE(ZBPathInfoGetComponent(info, -1, &component));
  EXPECT_FALSE(ZBPathInfoGetComponent(info, 0, nullptr));
  ZBPathInfoSetAbsolute(info, false);
  ZBPathInfoSetHasTrailingSeparator(info, true);
  EXPECT_FALSE(ZBPathInfoIsAbsolute(info));
  EXPECT_TRUE(ZBPathInfoHasTrailingSeparator(info));
  ZBPathInfoFree(info);

  // Null infos are ignored or answer nothing.
  ZBPathInfoFree(nullptr);
  ZBPathInfoRemoveFirstComponent(nullptr);
  EXPECT_EQ(0, ZBPathInfoGetComponentCount(nullptr));
  EXPECT_FALSE(ZBPathInfoIsAbsolute(nullptr));
  EXPECT_EQ(nullptr, ZBPathInfoCopyReconstructingWithStyle(nullptr, kPOSIX));
}

TEST(ZBPathInfo, AppendRules) {
  struct Case {
    const char *destination;
    const char *source;
    bool sourceTrailing; // forced on the parsed source
    const char *expected;
    bool absolute;
    bool trailing;
  };
  const Case cases[] = {
      {"", "/a", false, "/a", true, false}, {"a", "/b", false, "a/b", false, false},
      {"a/", "", false, "a", false, false}, {"", "", true, "", false, true},
      {"a/", "", true, "a", false, false},  {"/a", "b/c/", false, "/a/b/c", true, false},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << c.destination << " + " << c.source);
    ZBPathInfo *destination = ZBPathInfoCreate(c.destination, false);
    ZBPathInfo *source = ZBPathInfoCreate(c.source, false);
    if (c.sourceTrailing)
      ZBPathInfoSetHasTrailingSeparator(source, true);
    ASSERT_TRUE(ZBPathInfoAppendInfo(destination, source));
    EXPECT_EQ(c.expected, written(destination, kPOSIX));
    EXPECT_EQ(c.absolute, ZBPathInfoIsAbsolute(destination));
    EXPECT_EQ(c.trailing, ZBPathInfoHasTrailingSeparator(destination));
    ZBPathInfoFree(source);
    ZBPathInfoFree(destination);
  }
  EXPECT_FALSE(ZBPathInfoAppendInfo(nullptr, nullptr));
}

TEST(ZBPathInfo, AppendPathOwnsOneCopy) {
  ZBPathInfo *info = ZBPathInfoCreate("/base", true);
  std::string first = "one/two";
  ASSERT_TRUE(ZBPathInfoAppendPath(info, first.c_str(), true));
  first.assign(first.size(), 'x'); // the info reads its own copy
  EXPECT_FALSE(ZBPathInfoAppendPath(info, "again", true)) << "one owned copy only";
  const std::string second = "three";
  EXPECT_TRUE(ZBPathInfoAppendPath(info, second.c_str(), false));
  EXPECT_FALSE(ZBPathInfoAppendPath(info, nullptr, false));
  EXPECT_EQ("/base/one/two/three", written(info, kPOSIX));
  ZBPathInfoFree(info);
}

TEST(ZBPathInfo, ReconstructsPrefixesWithinTheBuffer) {
  ZBPathInfo *info = ZBPathInfoCreateWithStyle(kURL, "file://host/a/bb", false);
  char buffer[64];
  struct Case {
    ZBPathStyle style;
    int32_t count;
    size_t size;
    bool fits;
    const char *expected;
  };
  const Case cases[] = {
      {kPOSIX, 0, 6, true, "/a/bb"},
      {kPOSIX, 0, 5, false, ""},
      {kPOSIX, 2, 64, true, "/a"},
      {kPOSIX, 1, 64, true, "/"},
      {kDOS, 2, 64, true, "\\\\host\\a"},
      {kURL, 1, 64, true, "file://host/"},
      {kURL, 99, 17, true, "file://host/a/bb"},
      {kURL, 99, 16, false, ""},
      {7, 0, 64, false, ""},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message()
                 << "style " << c.style << " count " << c.count << " size " << c.size);
    EXPECT_EQ(c.fits, ZBPathInfoReconstructWithStyle(info, c.style, c.count, buffer, c.size));
    if (c.fits) {
      EXPECT_STREQ(c.expected, buffer);
    }
  }
  EXPECT_EQ("file://host/", take(ZBPathInfoCopyComponentsReconstructingWithStyle(info, kURL, 1)));
  EXPECT_EQ(std::nullopt, take(ZBPathInfoCopyReconstructingWithStyle(info, 5)));
  EXPECT_FALSE(ZBPathInfoReconstructWithStyle(info, kPOSIX, 0, nullptr, 10));
  ZBPathInfoFree(info);
}

TEST(ZBPath, AbsoluteAndRootTests) {
  struct Case {
    ZBPathStyle style;
    const char *text;
    bool absolute; // by the text test
    bool root;     // of the parsed info
  };
  const Case cases[] = {
      {kPOSIX, "/", true, true},        {kPOSIX, "", false, true},
      {kPOSIX, "/a", true, false},      {kPOSIX, "C:/a", true, false},
      {kPOSIX, "C:\\a", false, false},  {kPOSIX, "a", false, false},
      {kDOS, "C:\\", true, true},       {kDOS, "c:/x", true, false},
      {kDOS, "C:", false, false},       {kDOS, "\\\\srv\\share", false, false},
      {kDOS, "\\x", false, true},       {kDOS, "1:\\x", false, false},
      {kURL, "file:///a", true, false}, {kURL, "file:///", true, false},
      {kURL, "/a", false, false},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << "style " << c.style << " \"" << c.text << "\"");
    EXPECT_EQ(c.absolute, ZBPathIsAbsoluteWithStyle(c.style, c.text));
    ZBPathInfo *info = ZBPathInfoCreateWithStyle(c.style, c.text, false);
    EXPECT_EQ(c.root, ZBPathInfoIsRootWithStyle(c.style, info));
    if (c.style == kPOSIX) {
      EXPECT_EQ(c.absolute, ZBPathIsAbsolute(c.text));
      EXPECT_EQ(c.root, ZBPathInfoIsRoot(info));
    }
    ZBPathInfoFree(info);
  }
  EXPECT_FALSE(ZBPathIsAbsoluteWithStyle(9, "/a"));
  EXPECT_FALSE(ZBPathIsAbsolute(nullptr));
  EXPECT_FALSE(ZBPathInfoIsRootWithStyle(9, nullptr));
}

TEST(ZBPath, Normalizes) {
  struct Case {
    ZBPathStyle style;
    const char *source;
    const char *expected;
  };
  const Case cases[] = {
      {kPOSIX, "/a/./b//c/", "/a/b/c/"},
      {kPOSIX, "a/../b", "b"},
      {kPOSIX, "a/..", "."},
      {kPOSIX, "./", "."},
      {kPOSIX, "", ""},
      {kPOSIX, "../a/../../b", "../../b"},
      {kPOSIX, "/../a", "/a"},
      {kPOSIX, "/..", "/"},
      {kPOSIX, "//a//", "/a/"},
      {kPOSIX, "C:/a/../..", "C:/"},
      {kPOSIX, "a\\b/.\\c", "a\\b/.\\c"},
      {kPOSIX, "...", "..."},
      {kDOS, "C:/a/../b", "C:\\b"},
      {kDOS, "C:\\a:b\\c?d*e<f>g|h", "C:\\a-b\\c-d-e-f-g-h"},
      {kDOS, "\\\\?\\C:\\a\\.\\b", "\\\\?\\C:\\a\\b"},
      {kDOS, "\\\\server\\share\\..\\x", "\\\\server\\x"},
      {kDOS, "\\\\?\\UNC\\srv\\share\\..\\..", "\\\\?\\UNC\\srv\\"},
      {kDOS, "//a/b", "\\\\a\\b"},
      {kDOS, "/C:/x", "\\C-\\x"},
      {kDOS, "C:a\\..\\..", "C:.."},
      {kDOS, "a//b\\\\c", "a\\b\\c"},
      {kURL, "file:///a/./b/../c", "file:///a/c"},
      {kURL, "file://host/a/../..", "file://host/"},
      {kURL, "x/./y", "x/y"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << "style " << c.style << " \"" << c.source << "\"");
    char out[64];
    ASSERT_TRUE(ZBPathNormalizeWithStyle(c.style, c.source, out, sizeof out, 0));
    EXPECT_STREQ(c.expected, out);
    EXPECT_EQ(c.expected, take(ZBPathCopyNormalizedWithStyle(c.style, c.source, 0)));
    if (c.style == kPOSIX) {
      EXPECT_EQ(c.expected, take(ZBPathCopyNormalized(c.source, 0)));
    }
  }
  char out[4];
  EXPECT_TRUE(ZBPathNormalizeWithStyle(kPOSIX, "abc", out, 4, 0));
  EXPECT_FALSE(ZBPathNormalizeWithStyle(kPOSIX, "abcd", out, 4, 0));
  EXPECT_FALSE(ZBPathNormalizeWithStyle(kPOSIX, "a", out, 0, 0));
  EXPECT_FALSE(ZBPathNormalizeWithStyle(3, "a", out, 4, 0));
  EXPECT_FALSE(ZBPathNormalizeWithStyle(kPOSIX, nullptr, out, 4, 0));
  EXPECT_EQ(std::nullopt, take(ZBPathCopyNormalized(nullptr, 0)));
}

TEST(ZBPath, ConvertsBetweenStyles) {
  struct Case {
    ZBPathStyle from;
    const char *source;
    ZBPathStyle to;
    bool normalize;
    std::optional<std::string> expected;
  };
  const Case cases[] = {
      {kDOS, "C:\\x\\y", kPOSIX, false, "C:/x/y"},
      {kPOSIX, "C:/x/../y", kDOS, true, "C:\\y"},
      {kPOSIX, "C:/x/../y", kDOS, false, "C:\\x\\..\\y"},
      {kURL, "file:///a%20b/c", kPOSIX, false, "/a b/c"},
      {kPOSIX, "/a", kURL, false, std::nullopt}, // longer than its source
      {kPOSIX, "a/./b", kPOSIX, false, "a/./b"},
      {kPOSIX, "a/./b", kPOSIX, true, "a/b"},
      {kPOSIX, "", kDOS, false, ""},
      {kURL, "file://", kPOSIX, false, std::nullopt},
      {kPOSIX, "a", 4, false, std::nullopt},
      {4, "a", kPOSIX, false, std::nullopt},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << c.from << " \"" << c.source << "\" -> " << c.to);
    EXPECT_EQ(c.expected,
              take(ZBPathCopyConvertingWithStyle(c.from, c.source, c.to, 0, c.normalize)));
    EXPECT_EQ(c.expected, take(ZBPathCopyConverting(c.from, c.source, c.to, 0, c.normalize)));
  }
  EXPECT_EQ(std::nullopt, take(ZBPathCopyConverting(kPOSIX, nullptr, kDOS, 0, false)));

  // With room, the URL form comes out; in place works too.
  char buffer[64] = "/a/b";
  ASSERT_TRUE(ZBPathConvert(kPOSIX, buffer, kURL, buffer, sizeof buffer, 0, false));
  EXPECT_STREQ("file://localhost/a/b", buffer);
  ASSERT_TRUE(ZBPathConvert(kURL, buffer, kDOS, buffer, sizeof buffer, 0, true));
  EXPECT_STREQ("\\a\\b", buffer);
  EXPECT_FALSE(ZBPathConvert(kDOS, "abc", kDOS, buffer, 3, 0, false));
  EXPECT_TRUE(ZBPathConvert(kDOS, "abc", kDOS, buffer, 4, 0, false));
  EXPECT_FALSE(ZBPathConvert(kDOS, "abc", kPOSIX, nullptr, 4, 0, false));
}

TEST(ZBPath, Concatenates) {
  struct Case {
    ZBPathStyle style;
    const char *first;
    const char *second;
    std::optional<std::string> expected;
  };
  const Case cases[] = {
      {kPOSIX, "/a/b", "c/d/", "/a/b/c/d"},
      {kPOSIX, "", "/x", "/x"},
      {kPOSIX, "a", "", "a"},
      {kPOSIX, "C:/a", "/b", "C:/a/b"},
      {kDOS, "C:\\a", "b\\c", "C:\\a\\b\\c"},
      {kDOS, "\\\\srv\\share", "x", "\\\\srv\\share\\x"},
      {kURL, "file:///a", "b%20c", "file://localhost/a/b c"},
      {kURL, "file://", "b", std::nullopt},
      {kPOSIX, nullptr, "b", std::nullopt},
      {6, "a", "b", std::nullopt},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message()
                 << c.style << " " << (c.first ? c.first : "(null)") << " + " << c.second);
    EXPECT_EQ(c.expected, take(ZBPathCopyConcatenatedWithStyle(c.style, c.first, c.second)));
  }
  EXPECT_EQ("a/b", take(ZBPathCopyConcatenated("a", "b")));
}

TEST(ZBPath, DirectoryAndBaseNames) {
  struct Case {
    const char *path;
    const char *directory;
    const char *base;
  };
  const Case cases[] = {
      {"", ".", ""},        {"a", ".", "a"},       {"a/b", "a", "b"},
      {"a/b/", "a", "b"},   {"a//b", "a", "b"},    {"/a", "/", "a"},
      {"/", "/", "/"},      {"//", "/", "/"},      {"/a/b/c", "/a/b", "c"},
      {"C:/a", "C:/", "a"}, {"C:/", "C:/", "C:/"}, {"C:\\x\\y.txt", "C:\\x", "y.txt"},
      {"C:a", ".", "C:a"},  {"..", ".", ".."},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(c.directory, take(ZBPathCopyDirectoryName(c.path)));
    EXPECT_EQ(c.base, take(ZBPathCopyBaseName(c.path)));
  }
  EXPECT_EQ(std::nullopt, take(ZBPathCopyDirectoryName(nullptr)));
  EXPECT_EQ(std::nullopt, take(ZBPathCopyBaseName(nullptr)));
}

// The split reports through errno as the C runtime's splitters do: 1024
// bytes split, 1025 and more are too long; a splitter that runs out of room
// (ERANGE) is reported and rewritten, any other failure passes through.
TEST(ZBPath, DirectoryAndBaseNamesAtTheLengthLimit) {
  const std::string longest = "d/" + std::string(1020, 'n') + ".x";
  ASSERT_EQ(1024u, longest.size());
  errno = 0;
  EXPECT_EQ("d", take(ZBPathCopyDirectoryName(longest.c_str())));
  EXPECT_EQ(longest.substr(2), take(ZBPathCopyBaseName(longest.c_str())));
  EXPECT_EQ(0, errno);
  for (const std::string &path : {longest + "x", std::string(4000, '/')}) {
    errno = 0;
    EXPECT_EQ(std::nullopt, take(ZBPathCopyDirectoryName(path.c_str())));
    EXPECT_EQ(ENAMETOOLONG, errno);
    errno = 0;
    EXPECT_EQ(std::nullopt, take(ZBPathCopyBaseName(path.c_str())));
    EXPECT_EQ(ENAMETOOLONG, errno);
  }
#ifdef _WIN32
  static_assert(ENAMETOOLONG == 38, "the runtime's name-too-long errno");
#endif

  struct Failure {
    int splitterErrno;
    int expectedErrno;
    const char *expectedStderr;
  };
  const std::string fixing = "Fixing errno to be " + std::to_string(ENAMETOOLONG) + "\n";
  const Failure failures[] = {{ERANGE, ENAMETOOLONG, fixing.c_str()}, {EINVAL, EINVAL, ""}};
  static int sFailWith;
  sFailWith = 0;
  const auto saved = zb::path::gPathSplitter;
  zb::path::gPathSplitter = [](const char *, zb::path::LastComponent *) noexcept {
    errno = sFailWith;
    return false;
  };
  for (const Failure &failure : failures) {
    SCOPED_TRACE(failure.splitterErrno);
    sFailWith = failure.splitterErrno;
    for (char *(*copy)(const char *) : {ZBPathCopyDirectoryName, ZBPathCopyBaseName}) {
      testing::internal::CaptureStderr();
      errno = 0;
      EXPECT_EQ(nullptr, copy("a/b"));
      EXPECT_EQ(failure.expectedErrno, errno);
      EXPECT_EQ(failure.expectedStderr, testing::internal::GetCapturedStderr());
    }
  }
  zb::path::gPathSplitter = saved;
}

std::optional<std::u16string> takeWide(ZBWChar *text) {
  if (text == nullptr)
    return std::nullopt;
  std::u16string copy;
  for (const ZBWChar *unit = text; *unit != 0; ++unit)
    copy.push_back(static_cast<char16_t>(*unit));
  _ZBFree(text);
  return copy;
}

TEST(ZBPath, CopyNTMakesTheLongPathForm) {
  struct Case {
    const char *path;
    std::optional<std::u16string> expected;
  };
  const Case cases[] = {
      {"C:/a/../b", u"\\\\?\\C:\\b"},
      {"C:/dir//./file.txt", u"\\\\?\\C:\\dir\\file.txt"},
      {"rel/x", u"rel/x"},
      {"\\\\?\\C:\\x/./y", u"\\\\?\\C:\\x/./y"}, // already in the form: as it is
      {"\\\\srv\\share\\f", u"\\\\srv\\share\\f"},
      {"/a/b", u"\\a\\b"},                       // no drive: resolved by the system
      {"//srv/share/./f", u"\\\\srv\\share\\f"}, // UNC, normalised
      {"C:/caf\xC3\xA9/\xE6\x97\xA5", u"\\\\?\\C:\\caf\u00E9\\\u65E5"},
      {"C:/Latin\xE9", u"\\\\?\\C:\\Latin\u00E9"}, // a lone Latin-1 byte reads as such
      {"C:/bad\x80", std::nullopt},
      {"", u""},
      {nullptr, std::nullopt},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.path ? c.path : "(null)");
    EXPECT_EQ(c.expected, takeWide(ZBPathCopyNT(c.path)));
  }
  // Longer than the system's 260-character limit: the prefix carries it.
  std::string longPath = "C:";
  std::u16string expected = u"\\\\?\\C:";
  for (int index = 0; index < 40; ++index) {
    longPath += "/component" + std::to_string(index);
    for (char c : "\\component" + std::to_string(index))
      expected.push_back(static_cast<char16_t>(c));
  }
  EXPECT_EQ(expected, takeWide(ZBPathCopyNT(longPath.c_str())));
}

TEST(ZBPathInfo, DumpsToStandardError) {
  ZBPathInfo *info = ZBPathInfoCreateWithStyle(kDOS, "\\\\srv\\a\\b\\", true);
  testing::internal::CaptureStderr();
  ZBPathInfoDump(info);
  ZBPathInfoDump(nullptr);
  const std::string dump = testing::internal::GetCapturedStderr();
  EXPECT_EQ("ZBPathInfo for path: \\\\srv\\a\\b\\ ((null))\n"
            "  Absolute     = 'YES'\n"
            "  Node Name    = 'srv'\n"
            "  Components = <a>, <b>\n"
            "  Trailing separator = 'YES'\n",
            dump);
  ZBPathInfoFree(info);
}

// Malformed and oversized input in every style: no crash, and what can be
// checked about the result holds.
TEST(ZBPath, MalformedInputIsHandled) {
  const std::string hundredKB(100 * 1024, 'x');
  std::string manySeparators;
  for (int index = 0; index < 50 * 1024; ++index)
    manySeparators += "a/";
  const std::string texts[] = {
      "%",
      "%%",
      "%%%",
      "a%",
      "a%2",
      "%zz%00%g",
      "//",
      "\\\\",
      "\\\\\\",
      "\\\\?\\",
      "\\\\?\\UNC\\",
      "\\\\?\\UNC\\\\x",
      "C:",
      "C",
      ":",
      "/:",
      "C:..",
      "file:",
      "file:/",
      "file:///..",
      "../../..",
      "/./././",
      hundredKB,
      manySeparators,
      std::string(100 * 1024, '/'),
      std::string(100 * 1024, '%'),
      std::string(100 * 1024, '\\'),
  };
  for (const std::string &text : texts) {
    SCOPED_TRACE(text.substr(0, 20));
    for (ZBPathStyle style : kStyles) {
      ZBPathInfo *info = ZBPathInfoCreateWithStyle(style, text.c_str(), false);
      for (ZBPathStyle to : kStyles)
        take(ZBPathInfoCopyReconstructingWithStyle(info, to));
      ZBPathInfoFree(info);
      const std::optional<std::string> normalized =
          take(ZBPathCopyNormalizedWithStyle(style, text.c_str(), 0));
      ASSERT_TRUE(normalized.has_value());
      EXPECT_LE(normalized->size(), std::max<size_t>(text.size(), 1));
      take(ZBPathCopyConvertingWithStyle(style, text.c_str(), kPOSIX, 0, true));
    }
  }
  ZBPathInfo *info = ZBPathInfoCreate(manySeparators.c_str(), false);
  EXPECT_EQ(50 * 1024, ZBPathInfoGetComponentCount(info));
  EXPECT_TRUE(ZBPathInfoHasTrailingSeparator(info));
  ZBPathInfoFree(info);
  EXPECT_EQ(hundredKB, take(ZBPathCopyNormalized(hundredKB.c_str(), 0)));
}

} // namespace
