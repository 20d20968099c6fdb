// The file a trace session writes: unbuffered, so each chunk reaches the
// system in one write and a process killed mid-session leaves every whole
// chunk readable.
#include "ZBPlatform.h"
#include "ZBTracePrivate.h"

#include <cerrno>
#include <cstdio>
#include <new>

namespace {

// The C runtime's reasons a trace file cannot be opened.
constexpr struct {
  int number;
  ZBError error;
} kOpenErrors[] = {
    {EACCES, ZBErrorAccessDenied}, {ENOENT, ZBErrorFileNotFound},
    {ENOSPC, ZBErrorNoSpace},      {EROFS, ZBErrorReadOnlyFileSystem},
    {EISDIR, ZBErrorIsDirectory},  {EMFILE, ZBErrorTooManyFiles},
};

ZBError openError(int number) {
  for (const auto &row : kOpenErrors)
    if (row.number == number)
      return row.error;
  return ZBErrorIO;
}

class FileSink final : public zb::trace::Sink {
public:
  explicit FileSink(std::FILE *file) : mFile(file) {}
  ~FileSink() override { std::fclose(mFile); }
  bool write(const void *bytes, size_t length) noexcept override {
    return std::fwrite(bytes, 1, length, mFile) == length && std::fflush(mFile) == 0;
  }

private:
  std::FILE *mFile;
};

} // namespace

namespace zb::trace {

Sink *openFileSink(const char *path, ZBError *outError) noexcept {
  errno = 0;
  std::FILE *file = zb::platform::openStream(path, "wb");
  if (file == nullptr) {
    *outError = openError(errno);
    return nullptr;
  }
  std::setvbuf(file, nullptr, _IONBF, 0);
  Sink *sink = new (std::nothrow) FileSink(file);
  if (sink == nullptr) {
    std::fclose(file);
    *outError = ZBErrorNoMemory;
  }
  return sink;
}

} // namespace zb::trace
