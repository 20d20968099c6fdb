// The codes and texts of failed loads that Wine cannot produce on demand:
// each row of the load-error table injected through the system-call
// table, the English text with the path put in for the message's "%1",
// and the neutral "error N" for an error the system has no text for. Also
// an image whose file cannot be read for its long section names.
#include "ZBAlloc.h"
#include "ZBLibrary.h"
#include "ZBSystemCallInjection.h"
#include "ZBTestSupport.h"

namespace {

DWORD gInjectedError = 0;

HMODULE WINAPI failingLoad(LPCWSTR, HANDLE, DWORD) {
  SetLastError(gInjectedError);
  return nullptr;
}

std::string lastError() {
  char *text = ZBLibraryCopyLastError();
  std::string copy = text != nullptr ? text : "";
  _ZBFree(text);
  return copy;
}

TEST(ZBLibraryFailure, EachLoadErrorGivesItsCodeAndText) {
  zb::test::ScopedSystemCall fail(zb::gSystemCalls.LoadLibraryExW, failingLoad);
  const struct {
    DWORD error;
    ZBError expected;
  } rows[] = {
      {ERROR_FILE_NOT_FOUND, ZBErrorFileNotFound},
      {ERROR_PATH_NOT_FOUND, ZBErrorFileNotFound},
      {ERROR_MOD_NOT_FOUND, ZBErrorFileNotFound},
      {ERROR_INVALID_NAME, ZBErrorFileNotFound},
      {ERROR_BAD_EXE_FORMAT, ZBErrorUnsupported},
      {ERROR_INVALID_EXE_SIGNATURE, ZBErrorUnsupported},
      {ERROR_EXE_MACHINE_TYPE_MISMATCH, ZBErrorUnsupported},
      {ERROR_BAD_FORMAT, ZBErrorUnsupported},
      {ERROR_ACCESS_DENIED, ZBErrorAccessDenied},
      {ERROR_NOT_ENOUGH_MEMORY, ZBErrorNoMemory},
      {ERROR_OUTOFMEMORY, ZBErrorNoMemory},
      {ERROR_DLL_INIT_FAILED, ZBErrorGeneric},
      {0x2000FFFF, ZBErrorGeneric}, // no message anywhere
  };
  for (const auto &row : rows) {
    gInjectedError = row.error;
    ZBLibrary *library = nullptr;
    EXPECT_EQ(ZBLibraryOpen("C:/lib/injected.dll", 0, &library), row.expected) << row.error;
    const std::string text = lastError();
    EXPECT_EQ(text.rfind("C:/lib/injected.dll: ", 0), 0u) << text;
    EXPECT_EQ(text.find("%1"), std::string::npos) << "the path stands for the insert: " << text;
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos) << text;
    if (row.error == 0x2000FFFF) {
      EXPECT_EQ(text, "C:/lib/injected.dll: error 536936447");
    }
  }
  gInjectedError = ERROR_BAD_EXE_FORMAT;
  ZBLibrary *library = nullptr;
  ZBLibraryOpen("C:/lib/injected.dll", 0, &library);
  const std::string text = lastError();
  EXPECT_NE(text.find("C:/lib/injected.dll", 5), std::string::npos)
      << "the message's own mention of the file: " << text;
}

HANDLE WINAPI failingOpen(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
  SetLastError(ERROR_SHARING_VIOLATION);
  return INVALID_HANDLE_VALUE;
}

TEST(ZBImageFailure, UnreadableLongNamesLeaveTheShortOnes) {
  char program[MAX_PATH];
  GetModuleFileNameA(nullptr, program, MAX_PATH);
  std::string fixture(program);
  fixture.replace(fixture.find_last_of("\\/") + 1, std::string::npos, "zb_fixture_dwarf5.dll");
  HMODULE module = LoadLibraryA(fixture.c_str());
  ASSERT_NE(module, nullptr) << fixture;

  zb::test::ScopedSystemCall fail(zb::gSystemCalls.CreateFileW, failingOpen);
  void *address = nullptr;
  size_t size = 0;
  EXPECT_EQ(ZBImageGetSection(module, ".text", &address, &size), ZBErrorNone);
  EXPECT_GT(size, 0u);
  EXPECT_EQ(ZBImageGetSection(module, ".debug_line", &address, &size), ZBErrorIO);
  std::vector<std::string> names;
  EXPECT_EQ(ZBImageEnumerateSections(
                module,
                [](const char *name, void *, size_t, void *context) {
                  static_cast<std::vector<std::string> *>(context)->push_back(name);
                  return true;
                },
                &names),
            ZBErrorIO);
  size_t longNames = 0;
  for (const std::string &name : names)
    longNames += name.size() > 1 && name[0] == '/' && isdigit(static_cast<unsigned char>(name[1]));
  EXPECT_GT(longNames, 3u) << "the debug sections, by their string-table offsets";
  EXPECT_GT(names.size(), longNames);
  FreeLibrary(module);
}

} // namespace
