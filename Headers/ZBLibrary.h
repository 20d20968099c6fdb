/*
 * ZBLibrary.h: dynamic libraries and the images loaded in the process.
 *
 * ZBLibraryOpen loads a library (or names the program itself), and
 * ZBLibraryGetSymbol finds its exports. A failure leaves English text for
 * ZBLibraryCopyLastError on the failing thread, naming the path and the
 * system's message. The image functions read the headers of loaded images:
 * their sections (long names such as ".debug_line" included), the list of
 * loaded images, and notifications of later loads and unloads.
 */
#ifndef ZENBOR_ZBLIBRARY_H
#define ZENBOR_ZBLIBRARY_H

#include "ZBBase.h"
#include "ZBError.h"

ZB_EXTERN_C_BEGIN

/** An open library, from ZBLibraryOpen; closed with ZBLibraryClose. */
typedef struct ZBLibrary ZBLibrary;

/** Flags of ZBLibraryOpen. */
enum {
  ZBLibraryOpenNoLoad = 1 /**< open only a library that is already loaded */
};

/** Loads the library at `path` (UTF-8; "/" or "\" separate; an absolute
    path's own directory is searched for its dependencies) and stores a new
    record in `outLibrary`. A null path opens the program itself: its
    symbol look-ups search every loaded image, the executable first, then
    the others, newest first. The system's error dialogs are off during
    the load.
    @return 0; ZBErrorInvalidArgument for a null `outLibrary`, an empty
    path or unknown flags; ZBErrorFileNotFound (-4) for a missing file or a
    missing dependency (named by ZBLibraryCopyLastError); ZBErrorUnsupported
    (-21) for a file that is not a loadable image; ZBErrorNotFound (-40)
    with ZBLibraryOpenNoLoad for a library not loaded; ZBErrorAccessDenied;
    ZBErrorNoMemory; ZBErrorGeneric for other failures of the system. */
ZB_EXPORT ZBError ZBLibraryOpen(const char *path, uint32_t flags,
                                ZBLibrary **outLibrary) ZB_NOEXCEPT;

/** Finds the exported symbol `name` of `library` and stores its address in
    `outAddress`.
    @return 0; ZBErrorInvalidArgument for a null argument;
    ZBErrorInvalidHandle for a closed library; ZBErrorNotFound (-40) when
    no such symbol is exported (the text is left for
    ZBLibraryCopyLastError). */
ZB_EXPORT ZBError ZBLibraryGetSymbol(ZBLibrary *library, const char *name,
                                     void **outAddress) ZB_NOEXCEPT;

/** Closes the record and drops its reference to the library; the program's
    record releases nothing.
    @return 0; ZBErrorInvalidArgument for null; ZBErrorInvalidHandle for a
    record that is not open. */
ZB_EXPORT ZBError ZBLibraryClose(ZBLibrary *library) ZB_NOEXCEPT;

/** The text of the calling thread's last library failure, in English, for
    example "C:/x/y.dll: The specified module could not be found.", or null
    when there was none since the last call (each failure is reported
    once). Free with _ZBFree. */
ZB_EXPORT char *ZBLibraryCopyLastError(void) ZB_NOEXCEPT;

/** The path of the loaded image that holds `address` (UTF-8, as the system
    loaded it), stored in `outPath` (free with _ZBFree), and the image's
    base in `outBase` when that is not null.
    @return 0; ZBErrorInvalidArgument for a null `address` or `outPath`;
    ZBErrorNotFound (-40) when no image holds the address; ZBErrorNoMemory. */
ZB_EXPORT ZBError ZBLibraryCopyPathForAddress(const void *address, char **outPath,
                                              void **outBase) ZB_NOEXCEPT;

/** Called for each section: its full name, address and size in memory;
    false stops the walk. */
typedef bool (*ZBImageSectionCallback)(const char *name, void *address, size_t size, void *context);
/** Called for each loaded image: its path, base and size; false stops. */
typedef bool (*ZBImageCallback)(const char *path, void *base, size_t size, void *context);
/** Called after an image was loaded (`loaded` true) or before it goes. */
typedef void (*ZBImageNotificationCallback)(bool loaded, const char *path, void *base, size_t size,
                                            void *context);

/** Finds the section `name` (long names such as ".debug_line" included) of
    the loaded image at `imageBase` and stores its address and size in
    memory.
    @return 0; ZBErrorInvalidArgument for a null argument or a base that
    does not start a loaded image; ZBErrorNotFound (-40) when the image has
    no such section; ZBErrorIO (or ZBErrorNoMemory) when it has none of
    that name among the short names and its long names cannot be read from
    its file. */
ZB_EXPORT ZBError ZBImageGetSection(const void *imageBase, const char *name, void **outAddress,
                                    size_t *outSize) ZB_NOEXCEPT;

/** Calls `callback` for each section of the loaded image at `imageBase`, in
    the order of its section table, until it returns false. Long names
    that cannot be read from the image's file are given as their "/N".
    @return 0; ZBErrorInvalidArgument for a null argument or a base that
    does not start a loaded image; ZBErrorIO (or ZBErrorNoMemory) when the
    long names could not be read, after the walk. */
ZB_EXPORT ZBError ZBImageEnumerateSections(const void *imageBase, ZBImageSectionCallback callback,
                                           void *context) ZB_NOEXCEPT;

/** Calls `callback` for each image loaded in the process, the executable
    first, until it returns false.
    @return 0; ZBErrorInvalidArgument for a null callback; ZBErrorNoMemory;
    ZBErrorGeneric when the system cannot list the images. */
ZB_EXPORT ZBError ZBImageEnumerate(ZBImageCallback callback, void *context) ZB_NOEXCEPT;

/** Calls `callback` for each image loaded or unloaded from now on, on the
    loading thread, under the system's loader lock: the callback must not
    load or unload libraries. Registrations last as long as the process.
    @return 0; ZBErrorInvalidArgument for a null callback; ZBErrorNoMemory;
    ZBErrorUnsupported when the system offers no notifications. */
ZB_EXPORT ZBError ZBImageAddNotification(ZBImageNotificationCallback callback,
                                         void *context) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBLIBRARY_H */
