/*
 * ZBPath.h: paths in three styles, and the questions the file system answers
 * about them.
 *
 * A path text is parsed into a ZBPathInfo: a list of components that point
 * into the text, and flags (absolute, trailing separator, node name, URL
 * encoded). An info can be edited and written back in any style, which is
 * how paths move between styles:
 *
 *   style            separators   absolute when                       written as
 *   POSIX    (0)     "/"          "/..." or "X:/..."                  "/a/b", "C:/a"
 *   DOS      (1)     "/" and "\"  leading separator, "X:\", UNC       "C:\a", "\\srv\a"
 *   file URL (2)     "/"          "file://..."                        "file://host/a"
 *
 * Functions without "WithStyle" in their name use the POSIX style, the
 * library's own. Every returned string is allocated from the default zone
 * and released with _ZBFree (or _ZBFreeWithZone with a null zone).
 *
 * The file-system functions take library paths: "/C:/x" is used as "C:/x",
 * and the system receives the wide long-path form that ZBPathCopyNT makes.
 */
#ifndef ZENBOR_ZBPATH_H
#define ZENBOR_ZBPATH_H

#include "ZBBase.h"
#include "ZBError.h"
#include "ZBString.h"

ZB_EXTERN_C_BEGIN

/** A path style: one of the ZBPathStyle... constants. */
typedef int32_t ZBPathStyle;

enum {
  ZBPathStylePOSIX = 0,  /* "/"-separated; the library's own style */
  ZBPathStyleDOS = 1,    /* drive letters, backslashes, UNC servers */
  ZBPathStyleFileURL = 2 /* "file://host/a/b", percent-encoded */
};

/* Flags of a ZBPathInfo. */
enum {
  ZBPathInfoFlagAbsolute = 0x1,
  ZBPathInfoFlagTrailingSeparator = 0x2,
  ZBPathInfoFlagNodeName = 0x4,  /* the first component is a UNC server or URL host */
  ZBPathInfoFlagURLEncoded = 0x8 /* parsed as a URL: components are percent-encoded */
};

/* Access bits of ZBPathTestAccess. */
enum {
  ZBPathAccessExists = 0,
  ZBPathAccessWrite = 2,
  ZBPathAccessDirectoryWrite = 8 /* also look at the containing directory */
};

/** A parsed path. Opaque; created by ZBPathInfoCreate... and released by
    ZBPathInfoFree. */
typedef struct ZBPathInfo ZBPathInfo;

/** One component of a parsed path: `length` bytes at `characters`, inside
    the parsed text (not zero-terminated). */
typedef struct ZBPathComponent {
  const char *characters; /**< the component's first byte */
  uint32_t length;        /**< its length in bytes */
} ZBPathComponent;

/* --- The path model ---------------------------------------------------- */

/**
 * Parses `path` in `style`. With `copy` the info keeps its own copy of the
 * text; without it the caller keeps `path` alive and unchanged while the
 * info is used. Returns null for a null path, when memory runs out, and for
 * the URL texts "file://" and "file:/" alone. "file:/..." (one slash) logs a
 * Warning and is read as an absolute path. An unknown style is a programming
 * error: it is logged at Fatal level and ends the process.
 */
ZB_EXPORT ZBPathInfo *ZBPathInfoCreateWithStyle(ZBPathStyle style, const char *path,
                                                bool copy) ZB_NOEXCEPT;
/** ZBPathInfoCreateWithStyle in the POSIX style. */
ZB_EXPORT ZBPathInfo *ZBPathInfoCreate(const char *path, bool copy) ZB_NOEXCEPT;
/** Frees the info and the texts it owns. A null info is ignored. */
ZB_EXPORT void ZBPathInfoFree(ZBPathInfo *info) ZB_NOEXCEPT;

/** The number of components, a node name included; 0 for a null info. */
ZB_EXPORT int32_t ZBPathInfoGetComponentCount(const ZBPathInfo *info) ZB_NOEXCEPT;
/** Writes component `index` to `outComponent` and returns true; false when
    the index is negative or not below the count, or an argument is null. */
ZB_EXPORT bool ZBPathInfoGetComponent(const ZBPathInfo *info, int32_t index,
                                      ZBPathComponent *outComponent) ZB_NOEXCEPT;
/** Drops the first component (a node name loses its flag). Does nothing
    when there is none. */
ZB_EXPORT void ZBPathInfoRemoveFirstComponent(ZBPathInfo *info) ZB_NOEXCEPT;
/** Drops the last component. Does nothing when there is none. */
ZB_EXPORT void ZBPathInfoRemoveLastComponent(ZBPathInfo *info) ZB_NOEXCEPT;

/** Whether the path is absolute (flag ZBPathInfoFlagAbsolute). */
ZB_EXPORT bool ZBPathInfoIsAbsolute(const ZBPathInfo *info) ZB_NOEXCEPT;
/** Sets or clears the absolute flag. */
ZB_EXPORT void ZBPathInfoSetAbsolute(ZBPathInfo *info, bool absolute) ZB_NOEXCEPT;
/** Whether the text ended with a separator (flag
    ZBPathInfoFlagTrailingSeparator). */
ZB_EXPORT bool ZBPathInfoHasTrailingSeparator(const ZBPathInfo *info) ZB_NOEXCEPT;
/** Sets or clears the trailing-separator flag. */
ZB_EXPORT void ZBPathInfoSetHasTrailingSeparator(ZBPathInfo *info, bool trailing) ZB_NOEXCEPT;

/**
 * Appends the components of `source` to `destination`; they keep pointing
 * into the source's text, which must outlive the destination. An empty
 * destination becomes absolute with an absolute source. An empty source
 * hands its trailing flag to an empty destination and clears it on any
 * other; a non-empty one clears it. Returns false when memory runs out or
 * an argument is null.
 */
ZB_EXPORT bool ZBPathInfoAppendInfo(ZBPathInfo *destination, const ZBPathInfo *source) ZB_NOEXCEPT;
/**
 * Parses `path` in the POSIX style and appends it as ZBPathInfoAppendInfo
 * does. With `copy` the info keeps its own copy of `path`; it can hold one
 * such copy, so a second copying append returns false. False also when
 * memory runs out or an argument is null.
 */
ZB_EXPORT bool ZBPathInfoAppendPath(ZBPathInfo *info, const char *path, bool copy) ZB_NOEXCEPT;

/**
 * Writes the first `componentCount` components (all of them when it is
 * below 1) in `style` into `buffer` of `size` bytes, zero included.
 * Components of a URL-parsed info are percent-decoded. The POSIX form
 * leaves out a node name and drops the leading "/" before "X:"; the DOS form
 * starts with "\\server" or the drive; the URL form starts with "file://"
 * and the host ("localhost" when none). A trailing separator is not
 * written. Returns false when the text does not fit, the style is unknown
 * or an argument is null (the buffer then holds no defined text).
 */
ZB_EXPORT bool ZBPathInfoReconstructWithStyle(const ZBPathInfo *info, ZBPathStyle style,
                                              int32_t componentCount, char *buffer,
                                              size_t size) ZB_NOEXCEPT;
/** The whole info written in `style` as a new string; null when memory
    runs out, the style is unknown or the info is null. */
ZB_EXPORT char *ZBPathInfoCopyReconstructingWithStyle(const ZBPathInfo *info,
                                                      ZBPathStyle style) ZB_NOEXCEPT;
/** The first `componentCount` components (all below 1) written in `style`
    as a new string; null as ZBPathInfoCopyReconstructingWithStyle. */
ZB_EXPORT char *ZBPathInfoCopyComponentsReconstructingWithStyle(const ZBPathInfo *info,
                                                                ZBPathStyle style,
                                                                int32_t componentCount) ZB_NOEXCEPT;

/**
 * Whether `path` is absolute in `style`, read from the text alone. POSIX:
 * "/..." or a letter, ":" and "/". DOS: a letter, ":" and a separator (a UNC
 * text or a lone leading backslash is not absolute by this test). URL:
 * "file://...". False for a null path or an unknown style.
 */
ZB_EXPORT bool ZBPathIsAbsoluteWithStyle(ZBPathStyle style, const char *path) ZB_NOEXCEPT;
/** ZBPathIsAbsoluteWithStyle in the POSIX style. */
ZB_EXPORT bool ZBPathIsAbsolute(const char *path) ZB_NOEXCEPT;
/** Whether the info names a root. POSIX: no components. DOS: one component
    (the drive) and absolute. False for URLs, unknown styles and null. */
ZB_EXPORT bool ZBPathInfoIsRootWithStyle(ZBPathStyle style, const ZBPathInfo *info) ZB_NOEXCEPT;
/** ZBPathInfoIsRootWithStyle in the POSIX style. */
ZB_EXPORT bool ZBPathInfoIsRoot(const ZBPathInfo *info) ZB_NOEXCEPT;
/** Describes the info on standard error: its texts, flags, node name and
    components. A null info writes nothing. */
ZB_EXPORT void ZBPathInfoDump(const ZBPathInfo *info) ZB_NOEXCEPT;

/**
 * Normalises the text `source` into `destination` of `size` bytes, zero
 * included: runs of separators become one, "." components go, and ".."
 * removes the component before it (a relative path keeps its leading "..";
 * at a root it is dropped; an emptied relative path is "."). In DOS style
 * "/" becomes "\", the drive and the UNC and long-path prefixes are kept,
 * and any of "?*:<>|" inside a component becomes "-". In URL style the
 * "file://" prefix and host are kept. `options` is reserved: pass 0.
 * Returns false when the result does not fit, the style is unknown or an
 * argument is null.
 */
ZB_EXPORT bool ZBPathNormalizeWithStyle(ZBPathStyle style, const char *source, char *destination,
                                        size_t size, uint32_t options) ZB_NOEXCEPT;

/* --- Operations on path texts ----------------------------------------- */

/**
 * Converts `source` from one style to another into `destination` of `size`
 * bytes. Between equal styles the text is normalised (with `normalize`) or
 * copied. Otherwise it is parsed in `fromStyle` and written in `toStyle`,
 * then normalised when asked. Returns true on success; false when the text
 * does not fit, memory runs out, a style is unknown or an argument is null.
 */
ZB_EXPORT bool ZBPathConvert(ZBPathStyle fromStyle, const char *source, ZBPathStyle toStyle,
                             char *destination, size_t size, uint32_t options,
                             bool normalize) ZB_NOEXCEPT;
/** A normalised copy of `path` (see ZBPathNormalizeWithStyle); "" for "";
    null for a null path, an unknown style or no memory. */
ZB_EXPORT char *ZBPathCopyNormalizedWithStyle(ZBPathStyle style, const char *path,
                                              uint32_t options) ZB_NOEXCEPT;
/** ZBPathCopyNormalizedWithStyle in the POSIX style. */
ZB_EXPORT char *ZBPathCopyNormalized(const char *path, uint32_t options) ZB_NOEXCEPT;
/**
 * A copy of `path` converted between styles (ZBPathConvert); "" for "".
 * The result may be at most as long as `path`: a longer one (as "/a" in URL
 * style) gives null, as do a null path, an unknown style and no memory.
 */
ZB_EXPORT char *ZBPathCopyConvertingWithStyle(ZBPathStyle fromStyle, const char *path,
                                              ZBPathStyle toStyle, uint32_t options,
                                              bool normalize) ZB_NOEXCEPT;
/** The same as ZBPathCopyConvertingWithStyle. */
ZB_EXPORT char *ZBPathCopyConverting(ZBPathStyle fromStyle, const char *path, ZBPathStyle toStyle,
                                     uint32_t options, bool normalize) ZB_NOEXCEPT;
/** `second` appended to `first` (ZBPathInfoAppendInfo), written in `style`;
    null when either is null, a style is unknown or memory runs out. */
ZB_EXPORT char *ZBPathCopyConcatenatedWithStyle(ZBPathStyle style, const char *first,
                                                const char *second) ZB_NOEXCEPT;
/** ZBPathCopyConcatenatedWithStyle in the POSIX style. */
ZB_EXPORT char *ZBPathCopyConcatenated(const char *first, const char *second) ZB_NOEXCEPT;
/** The directory part of `path` ("a/b" gives "a", "/a" gives "/", "a" and ""
    give "."); trailing separators are ignored, and "/" and "\" both
    separate. Null for a null path or no memory. */
ZB_EXPORT char *ZBPathCopyDirectoryName(const char *path) ZB_NOEXCEPT;
/** The last component of `path` ("a/b/" gives "b", "/" gives "/", "" gives
    ""). Null for a null path or no memory. */
ZB_EXPORT char *ZBPathCopyBaseName(const char *path) ZB_NOEXCEPT;

/**
 * The wide form of `path` that Windows file calls take. A "\\?\" path is
 * kept as it is; an absolute path ("/..." or "X:/...") is normalised in DOS
 * style, and one with a drive is prefixed with "\\?\", so it may exceed 260
 * characters; any other path (relative, "\\server") is only widened. Null for a null path, text
 * that is not UTF-8 (Latin-1 bytes are read as such), a failed normalisation (logged as an Error)
 * or no memory.
 */
ZB_EXPORT ZBWChar *ZBPathCopyNT(const char *path) ZB_NOEXCEPT;

/* --- Paths and the current directory (Windows) ------------------------ */

/** The current directory in `style` ("C:/x" in the POSIX style); null
    when the system fails, the directory is longer than 2047 units or memory
    runs out. */
ZB_EXPORT char *ZBPathCopyCurrentWithStyle(ZBPathStyle style) ZB_NOEXCEPT;
/** ZBPathCopyCurrentWithStyle in the POSIX style. */
ZB_EXPORT char *ZBPathCopyCurrent(void) ZB_NOEXCEPT;
/** A path absolute in `style` as a normalised copy; any other path appended
    to the current directory. Null on failure. */
ZB_EXPORT char *ZBPathCopyAbsoluteWithStyle(ZBPathStyle style, const char *path) ZB_NOEXCEPT;
/** ZBPathCopyAbsoluteWithStyle in the POSIX style. */
ZB_EXPORT char *ZBPathCopyAbsolute(const char *path) ZB_NOEXCEPT;
/** The full path the system makes of `path` (GetFullPathNameW), in the
    POSIX style. Null when the system fails, the result is 2047 units or
    longer, or memory runs out. */
ZB_EXPORT char *ZBPathCopyExpandedPath(const char *path) ZB_NOEXCEPT;

/* --- The file system --------------------------------------------------- */

/**
 * Sets or clears the read-only attribute: cleared when `mode` has a write
 * bit (0222), set otherwise. Returns 0, ZBErrorInvalidArgument (empty
 * path, or the system refused the value), ZBErrorNoMemory,
 * ZBErrorFileNotFound, ZBErrorAccessDenied, ZBErrorReadOnlyFileSystem,
 * ZBErrorNameTooLong or ZBErrorGeneric.
 */
ZB_EXPORT ZBError ZBPathChangeMode(const char *path, uint16_t mode) ZB_NOEXCEPT;
/** Whether something exists at `path`. A path the system refuses to
    describe for any reason but "not found" counts as existing. */
ZB_EXPORT bool ZBPathExists(const char *path) ZB_NOEXCEPT;
/** Whether `path` names a directory. */
ZB_EXPORT bool ZBPathIsDirectory(const char *path) ZB_NOEXCEPT;
/**
 * 0 when `path` names a directory (or the system denies access to it),
 * ZBErrorNotDirectory when it names something else; otherwise the system's
 * error mapped as for files (ZBErrorFileNotFound, ...; errors other than
 * "file not found" are logged). ZBErrorInvalidArgument for an absent or
 * empty path, ZBErrorNoMemory when the path cannot be converted.
 */
ZB_EXPORT ZBError ZBPathExistsAndIsDir(const char *path) ZB_NOEXCEPT;
/**
 * 0 when `path` exists and allows the access in `mode` (ZBPathAccess...
 * bits); ZBErrorAccessDenied when write access is asked of a read-only
 * file. ZBPathAccessDirectoryWrite also looks at the containing directory
 * but does not change the result. Errors: ZBErrorInvalidArgument (empty
 * path, or the system refused the value), ZBErrorNoMemory,
 * ZBErrorFileNotFound, ZBErrorAccessDenied, ZBErrorInvalidFileName,
 * ZBErrorReadOnlyFileSystem, ZBErrorNameTooLong, ZBErrorGeneric.
 */
ZB_EXPORT ZBError ZBPathTestAccess(const char *path, int32_t mode) ZB_NOEXCEPT;
/** A copy of `path` when it exists (there are no symbolic links to
    follow); null otherwise. */
ZB_EXPORT char *ZBPathCopySymbolicLink(const char *path) ZB_NOEXCEPT;
/** As ZBPathCopySymbolicLink, with the reason: 0 and the copy in
    `outPath`; ZBErrorInvalidArgument for an empty path or a null
    `outPath`, ZBErrorFileNotFound, ZBErrorNoMemory. */
ZB_EXPORT ZBError ZBPathCopySymbolicLinkWithError(const char *path, char **outPath) ZB_NOEXCEPT;
/** The final path of the existing file or directory at `path`, links and
    junctions resolved, in the POSIX style ("C:/x/y"). Null when it does
    not exist or cannot be opened, or memory runs out. */
ZB_EXPORT char *ZBPathCopyResolvedSymbolicLink(const char *path) ZB_NOEXCEPT;
/** Links are not available: counts the call and returns
    ZBErrorUnsupported. */
ZB_EXPORT ZBError ZBPathCreateLink(const char *existingPath, const char *linkPath,
                                   uint32_t flags) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBPATH_H */
