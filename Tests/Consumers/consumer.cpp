// A C++ program built against the installed SDK alone. The library's
// allocated strings are held by smart pointers whose deleters give them back
// to the library; text crosses the DLL boundary only as buffers and
// allocated strings, never as a C runtime object.
#include <cstdio>
#include <memory>
#include <string>

#include <Zenbor/Zenbor.h>

namespace {

struct LibraryFree {
  void operator()(void *pointer) const noexcept { _ZBFree(pointer); }
};
struct FormatterFree {
  void operator()(char *pointer) const noexcept { qprffree(pointer); }
};

void *work(void *argument) {
  auto *result = static_cast<std::string *>(argument);
  std::unique_ptr<char, LibraryFree> name(
      ZBCStringCreateWithFormat(nullptr, "%s", ZBThreadGetName(0)));
  *result = name ? name.get() : "(none)";
  return argument;
}

} // namespace

int main() {
  std::printf("Zenbor %s %d.%d.%d from C++\n", ZENBOR_VERSION_STRING, ZENBOR_VERSION_MAJOR,
              ZENBOR_VERSION_MINOR, ZENBOR_VERSION_PATCH);

  char *raw = nullptr;
  int length = qasprintf(&raw, "%s has %zu bytes", "the buffer", static_cast<size_t>(4096));
  std::unique_ptr<char, FormatterFree> text(raw);
  if (length < 0 || !text)
    return 1;
  std::printf("qasprintf: %s (%d)\n", text.get(), length);

  std::unique_ptr<ZBWChar, LibraryFree> wide(
      ZBWCStringCreateWithFormat(nullptr, "%s-%d", "wide", 16));
  std::unique_ptr<char, LibraryFree> narrow(wide ? ZBCStringDuplicateWCString(nullptr, wide.get())
                                                 : nullptr);
  if (!narrow)
    return 2;
  std::printf("ZBWCStringCreateWithFormat: %s\n", narrow.get());

  std::string threadName;
  ZBThread thread =
      ZBThreadCreate("consumer-worker", work, &threadName, ZBThreadPriorityDefault, 0, 0);
  void *joined = nullptr;
  if (thread == 0 || ZBThreadJoin(thread, &joined) != ZBErrorNone || joined != &threadName)
    return 3;
  std::printf("thread: %s\n", threadName.c_str());
  return 0;
}
