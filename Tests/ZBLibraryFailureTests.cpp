// The codes and texts of failed loads that Wine cannot produce on demand:
// each row of the load-error table injected through the system-call
// table, the English text with the path put in for the message's "%1",
// and the neutral "error N" for an error the system has no text for.
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

} // namespace
