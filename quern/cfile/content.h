// Editing the contents of the current file.
//
// A position is an address in the mapped data or, in a stream, an offset: pView + offset says
// either. A file is edited up to nMaxSize. What goes beyond is cut after the last separator of
// records that the open flags name (FO_SEP_MASK). Compat: FileReplace tells where exactly.
//
// Streams are resized with FO_STREAMED; without it, they would have to be mapped.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "quern/cfile/object.h"

namespace quern {

// Changes nSize by `delta`, and grows the mapping as needed. A file with FO_KEEP_NAME that was
// opened for reading is opened again for writing. Returns 0, or minus ErrLast after raising 1
// (beyond nMaxSize), 2 (not opened again), 3 (nGrow is 0) or 4 (not mapped).
//
// After code 4 nothing is mapped, and pView is null or a mere address. The bytes on the disk are as
// they were. FileMap(nSize), once it succeeds, recovers the file: pView may differ.
int32_t FileResize(int32_t delta);

// Told of every change of size of a file with a scanner, when nSize has changed. Installed by the
// scanner module.
extern void (*FileResizedHook)(FileObject* file);

// Replaces `length` bytes at `pos` by `newLength` bytes, which must not be the file's own. Returns
// by how much the data grew; 0 also after raising
//   1 `pos` is outside the data      2 the bytes are the file's own
//   3 no such place in the stream    4 no memory
//   5 the edit was not made, within nMaxSize      6 the same, at nMaxSize
// Below 5 and 6 stands the reason: what FileResize raised; 1, nothing is mapped; 2, the range is
// not within the data or beyond the mapped bytes, or the view is for reading; nothing, when the
// stream did not take the bytes. A mapped file's bytes are then unchanged, but nSize may have
// moved: to the size that the edit asked for, or to nMaxSize. Closing pads the file with zeros, or
// cuts it, to nSize: set it back with FileResize first.
//
// Compat: a stream gets the new bytes, then `pos` + `length` bytes of what followed the old range,
// filled up with zeros or cut.
//
// An edit that would pass nMaxSize makes the data that large, with the new bytes cut, and then
// smaller again by the offset of the last separator within the last bytes of the data, as many as
// are new or were kept behind them, whichever are fewer: of a '[' that offset less 1, of an empty
// line ("\r\n\r\n") or a line end ("\r\n") itself; of none nothing. So a file whose nMaxSize is
// below nSize, or 0 as of a file for reading, shrinks to nMaxSize before the edit is refused.
int32_t FileReplace(char* pos, uint32_t length, const void* newBytes, uint32_t newLength);

// Replaces `length` bytes at `pos` by a formatted text, as FileReplace does; 4 is raised, too, when
// the runtime makes no text of the format. When `format` is kFileArgList, the arguments are a
// format and a va_list, passed by value: FileVPrintf(pos, length, kFileArgList, format, list).
//
// Format and arguments may lie in the file's own data.
int32_t FileVPrintf(char* pos, uint32_t length, const char* format, ...);
inline const char* const kFileArgList = reinterpret_cast<const char*>(~uintptr_t{0});

// Inserts a formatted text.
int32_t FilePrintf(char* pos, const char* format, ...);

// Appends a formatted text.
int32_t FileAppendf(const char* format, ...);

// What the three do, with a prepared argument list.
int32_t FileFormatList(char* pos, uint32_t length, const char* format, va_list arguments);

}  // namespace quern
