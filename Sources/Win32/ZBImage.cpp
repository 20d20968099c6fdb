// The images loaded in the process: their sections, read from the mapped
// headers through the PE reader, their list, and notifications of loads
// and unloads through ntdll's LdrRegisterDllNotification.
//
// mingw names sections longer than eight characters "/N", an offset into
// the COFF string table; that table is in the image's file but not in its
// mapping, so it is read from the file when a name needs it.
#include "ZBLibrary.h"

#include "ZBAlloc.h"
#include "ZBModulePath.h"
#include "ZBOwned.h"
#include "ZBPEImage.h"
#include "ZBScopedHandle.h"
#include "ZBSystemCalls.h"
#include "ZBWinAPI.h"

#include <cstring>
#include <vector>

namespace {

namespace pe = zb::pe;

// Above this the string table is taken for damage, not read.
constexpr uint32_t kLargestStringTable = 64u << 20;

struct MappedImage {
  const uint8_t *base;
  pe::Headers headers;
};

// The headers of the image mapped at `base`; false unless `base` starts a
// mapped image whose headers parse.
bool readMappedImage(const void *base, MappedImage *out) noexcept {
  MEMORY_BASIC_INFORMATION region{};
  if (base == nullptr || VirtualQuery(base, &region, sizeof(region)) == 0 ||
      region.AllocationBase != base || region.Type != MEM_IMAGE || region.State != MEM_COMMIT)
    return false;
  out->base = static_cast<const uint8_t *>(base);
  return pe::readHeaders(out->base, region.RegionSize, &out->headers);
}

// The COFF string table of an image, read from its file.
struct StringTable {
  zb::Owned<uint8_t> bytes;
  size_t size = 0;
};

bool readExactly(HANDLE file, uint64_t offset, void *buffer, DWORD size) noexcept {
  LARGE_INTEGER position;
  position.QuadPart = static_cast<LONGLONG>(offset);
  DWORD read = 0;
  return zb::gSystemCalls.SetFilePointerEx(file, position, nullptr, FILE_BEGIN) &&
         zb::gSystemCalls.ReadFile(file, buffer, size, &read, nullptr) && read == size;
}

ZBError readStringTable(const MappedImage &image, StringTable *out) noexcept {
  const uint64_t offset = pe::stringTableOffset(image.headers);
  if (offset == 0)
    return ZBErrorNone; // no table: long names stay as "/N"
  std::wstring path;
  try {
    path = zb::module::path(reinterpret_cast<HMODULE>(const_cast<uint8_t *>(image.base)));
  } catch (...) {
    return ZBErrorNoMemory;
  }
  zb::ScopedFileHandle file(zb::gSystemCalls.CreateFileW(
      path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
      OPEN_EXISTING, 0, nullptr));
  uint8_t sizeField[4];
  if (!file.isValid() || !readExactly(file.get(), offset, sizeField, 4))
    return ZBErrorIO;
  uint32_t size = 0;
  std::memcpy(&size, sizeField, 4);
  if (size < 4 || size > kLargestStringTable)
    return ZBErrorIO;
  out->bytes.reset(static_cast<uint8_t *>(_ZBAlloc(size)));
  if (out->bytes == nullptr)
    return ZBErrorNoMemory;
  out->size = size;
  return readExactly(file.get(), offset, out->bytes.get(), size) ? ZBErrorNone : ZBErrorIO;
}

// Walks the sections until `visit` returns false. When the string table
// cannot be read, long names are given as their "/N" and the walk still
// covers every section; its result then says why the names are missing.
template <typename Visit>
ZBError visitSections(const void *imageBase, Visit visit) noexcept {
  MappedImage image;
  if (!readMappedImage(imageBase, &image))
    return ZBErrorInvalidArgument;
  StringTable strings;
  ZBError namesResult = ZBErrorNone;
  for (uint16_t index = 0; index < image.headers.sectionCount; ++index)
    if (pe::hasLongName(pe::sectionAt(image.base, image.headers, index))) {
      namesResult = readStringTable(image, &strings);
      break;
    }
  for (uint16_t index = 0; index < image.headers.sectionCount; ++index) {
    const pe::Section section = pe::sectionAt(image.base, image.headers, index);
    std::string_view name = pe::sectionName(section, strings.bytes.get(), strings.size);
    if (name.empty())
      name = section.shortName;
    // Names end at a zero in the header or in the table, so data() is a C string.
    if (!visit(name.data(), const_cast<uint8_t *>(image.base) + section.virtualAddress,
               size_t{section.virtualSize != 0 ? section.virtualSize : section.rawSize}))
      break;
  }
  return namesResult;
}

struct NotificationRegistration {
  ZBImageNotificationCallback callback;
  void *context;
  PVOID cookie;
};

VOID CALLBACK notify(ULONG reason, const zb::winapi::LoaderNotificationData *notification,
                     PVOID context) {
  const auto *registration = static_cast<const NotificationRegistration *>(context);
  const zb::Owned<char> path(
      zb::module::copyUTF8(notification->fullName->buffer, notification->fullName->length / 2));
  registration->callback(reason == zb::winapi::kLoaderNotificationLoaded,
                         path != nullptr ? path.get() : "", notification->base, notification->size,
                         registration->context);
}

} // namespace

extern "C" ZBError ZBImageGetSection(const void *imageBase, const char *name, void **outAddress,
                                     size_t *outSize) noexcept {
  if (imageBase == nullptr || name == nullptr || outAddress == nullptr || outSize == nullptr)
    return ZBErrorInvalidArgument;
  *outAddress = nullptr;
  *outSize = 0;
  bool found = false;
  const ZBError result =
      visitSections(imageBase, [&](const char *section, void *address, size_t size) {
        if (std::strcmp(section, name) != 0)
          return true;
        *outAddress = address;
        *outSize = size;
        found = true;
        return false;
      });
  // A short name is found even when the long ones could not be read.
  return found ? ZBErrorNone : result != ZBErrorNone ? result : ZBErrorNotFound;
}

extern "C" ZBError ZBImageEnumerateSections(const void *imageBase, ZBImageSectionCallback callback,
                                            void *context) noexcept {
  if (imageBase == nullptr || callback == nullptr)
    return ZBErrorInvalidArgument;
  return visitSections(imageBase, [&](const char *name, void *address, size_t size) {
    return callback(name, address, size, context);
  });
}

extern "C" ZBError ZBImageEnumerate(ZBImageCallback callback, void *context) noexcept {
  if (callback == nullptr)
    return ZBErrorInvalidArgument;
  try {
    std::vector<HMODULE> modules;
    if (!zb::module::loaded(&modules))
      return ZBErrorGeneric;
    for (HMODULE module : modules) {
      MappedImage image;
      const std::wstring path = zb::module::path(module);
      // An image unloaded since the list was taken is skipped.
      if (path.empty() || !readMappedImage(module, &image))
        continue;
      const zb::Owned<char> utf8(zb::module::copyUTF8(path.data(), path.size()));
      if (utf8 == nullptr)
        return ZBErrorNoMemory;
      if (!callback(utf8.get(), module, image.headers.imageSize, context))
        break;
    }
  } catch (...) {
    return ZBErrorNoMemory;
  }
  return ZBErrorNone;
}

extern "C" ZBError ZBImageAddNotification(ZBImageNotificationCallback callback,
                                          void *context) noexcept {
  if (callback == nullptr)
    return ZBErrorInvalidArgument;
  const zb::winapi::LdrRegisterDllNotificationFunction registerNotification =
      zb::winapi::ldrRegisterDllNotification();
  if (registerNotification == nullptr)
    return ZBErrorUnsupported;
  // Kept for the life of the process: the loader calls back through it.
  auto *registration = static_cast<NotificationRegistration *>(
      _ZBAllocWithZoneAndDesc(nullptr, sizeof(NotificationRegistration), "ZBImageAddNotification"));
  if (registration == nullptr)
    return ZBErrorNoMemory;
  *registration = NotificationRegistration{callback, context, nullptr};
  if (registerNotification(0, notify, registration, &registration->cookie) < 0) {
    _ZBFree(registration);
    return ZBErrorGeneric;
  }
  return ZBErrorNone;
}
