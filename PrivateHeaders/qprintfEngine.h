// The format engine's inside, shared by its layers: the sink that output
// runs into, the table of modifiers, the core that drives a call, the field
// writer that renderers use, and the sinks' formatting entry points.
#pragma once

#include "qprintf.h"

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

// Where one call's output goes. Bytes that fit between `cursor` and `limit`
// are stored there directly (a buffer sink's free room, so a run costs one
// memcpy); everything else goes to `overflow`, which returns how many of the
// bytes it accepted. Refused bytes are not counted and formatting goes on.
struct qprintf_sink {
  char *cursor;
  char *limit;
  size_t (*overflow)(qprintf_sink *sink, const char *bytes, size_t length);
  void *context;
  int64_t count; // bytes accepted so far
};

// One entry of the conversion table. A null fetch skips `count` argument
// words; a null render prints nothing.
struct qprintf_modifier {
  int32_t count;
  qprintf_fetch_fn fetch;
  qprintf_render_fn render;
  void *userData;
};

// Indexed by the unsigned conversion character. It holds the built-in
// conversions from the start (it is constant data, complete before any
// code runs, whatever order static constructors run in) and is changed
// only by registrations; read without a lock.
extern std::array<qprintf_modifier, 256> qprintf_modifier_table;

// Sets the C runtime's locale to the environment's, once; later calls do
// nothing. Part of the library's load-time start-up.
void qprintf_builtins_init() noexcept;

// Formats `format` into `sink`: parses it, fetches every argument in
// argument order, then renders in format order. Returns the sink's count,
// 0 for a null or empty format, or -1 when the format needs more records
// than memory (or the engine's limits) allow.
//
// The arguments are read in place from `*arguments`, which the caller does
// not read again. The engine's own copy of a list serves only formats that
// name arguments by position: on x86-64 a list that was just started is
// still on its way to memory, and reading the arguments through a fresh
// copy of it stalls every call.
int64_t qprintf_run(qprintf_sink *sink, uint32_t reserved, const char *format,
                    va_list *arguments) noexcept;

// Writes `length` bytes of `text` padded to the info's width: before the
// text with "0" when the "0" flag is set, else with spaces; after it (a
// negative width) always with spaces. Returns as
// qprintf_print_from_formatter.
int qprintf_emit(qprintf_info *info, const char *text, size_t length) noexcept;

namespace zb::format {

// Copies a run that does not overlap its destination. Most runs the engine
// writes are a few bytes long, where a call to memcpy costs more than the
// copy: those are moved with at most two fixed-size loads and stores.
inline void copyRun(char *to, const char *from, size_t length) noexcept {
  if (length > 16) {
    std::memcpy(to, from, length);
  } else if (length >= 8) {
    uint64_t head, tail;
    std::memcpy(&head, from, 8);
    std::memcpy(&tail, from + length - 8, 8);
    std::memcpy(to, &head, 8);
    std::memcpy(to + length - 8, &tail, 8);
  } else if (length >= 4) {
    uint32_t head, tail;
    std::memcpy(&head, from, 4);
    std::memcpy(&tail, from + length - 4, 4);
    std::memcpy(to, &head, 4);
    std::memcpy(to + length - 4, &tail, 4);
  } else if (length > 0) {
    to[0] = from[0];
    to[length / 2] = from[length / 2];
    to[length - 1] = from[length - 1];
  }
}

// Writes a run into the sink; true when every byte was accepted.
inline bool sinkWrite(qprintf_sink *sink, const char *bytes, size_t length) noexcept {
  if (length == 0)
    return true;
  if (static_cast<size_t>(sink->limit - sink->cursor) >= length) {
    copyRun(sink->cursor, bytes, length);
    sink->cursor += length;
    sink->count += static_cast<int64_t>(length);
    return true;
  }
  const size_t accepted = sink->overflow(sink, bytes, length);
  sink->count += static_cast<int64_t>(accepted);
  return accepted == length;
}

// One piece of a rendered field: `length` bytes of `text`, or `length`
// copies of `fill` when `text` is null.
struct Piece {
  const char *text;
  size_t length;
  char fill;
};

inline Piece textPiece(const char *text, size_t length) { return Piece{text, length, 0}; }
inline Piece fillPiece(char fill, size_t length) { return Piece{nullptr, length, fill}; }

// Writes the pieces as one field padded with `pad` to the info's width
// (before the pieces, or after them when the width is negative). Returns the
// code of the last byte written, -1 when it was refused, 0 when the field
// is empty.
int writeField(const qprintf_info &info, char pad, const Piece *pieces, size_t count) noexcept;

// Writes one run as a field padded with spaces: straight into the sink's
// room when the whole field fits there (as it does for most numbers with a
// width), else piece by piece.
inline int writeText(const qprintf_info &info, const char *text, size_t length) noexcept {
  if (length == 0) {
    const Piece piece = textPiece(text, length);
    return writeField(info, ' ', &piece, 1);
  }
  if (info.width == 0)
    return sinkWrite(info.sink, text, length) ? static_cast<unsigned char>(text[length - 1]) : -1;
  const uint64_t magnitude = info.width < 0 ? uint64_t(-int64_t(info.width)) : uint64_t(info.width);
  const size_t padding = magnitude > length ? size_t(magnitude - length) : 0;
  qprintf_sink *sink = info.sink;
  if (static_cast<size_t>(sink->limit - sink->cursor) < length + padding) {
    const Piece piece = textPiece(text, length);
    return writeField(info, ' ', &piece, 1);
  }
  char *field = sink->cursor;
  const bool leftJustified = info.width < 0;
  std::memset(leftJustified ? field + length : field, ' ', padding);
  copyRun(leftJustified ? field : field + padding, text, length);
  sink->cursor += length + padding;
  sink->count += static_cast<int64_t>(length + padding);
  return leftJustified && padding > 0 ? ' ' : static_cast<unsigned char>(text[length - 1]);
}

// The sinks; each reads `*arguments` in place, as qprintf_run does.
// `size` -1 means the buffer is known to be large enough. snprintf's
// result: the length stored when everything fit, else the full length; -1
// when the core fails or the length does not fit in an int.
int formatIntoBuffer(char *buffer, int64_t size, const char *format, va_list *arguments) noexcept;
// asprintf's: `*out` receives a new block (or null on failure); the result
// is the stored length, or -1.
int formatIntoNewBuffer(char **out, const char *format, va_list *arguments) noexcept;
// To a stream; standard output and standard error go to the debugger output.
int formatToStream(FILE *stream, const char *format, va_list *arguments) noexcept;

} // namespace zb::format
