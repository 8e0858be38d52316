// Mapping the current file into memory, at one address while it grows.
//
// The first mapping of a file that may grow reserves a range of addresses for its largest size.
// From then on two views fill the range: the file's own at its start, and behind it a reserve that
// nobody may touch, which keeps everything else out. Growing releases both and maps them anew, with
// a larger file view at the same address, so pointers into the data stay valid. The view of a file
// for writing is a multiple of the allocation granularity, and while it is mapped the file is as
// large on the disk; closing cuts it back.
#pragma once

#include <cstdint>

#include "platform/win32.h"
#include "quern/cfile/object.h"

namespace quern {

// Maps `size` bytes and, for a file that may grow, its increment; 0 unmaps. Returns 0; the number
// of a failure that was raised: 2 (the file could not be mapped), 4 (not at its address), 10, 11,
// 12 (no mapping, by the access), 13 (no access), 5 or 6 (not unmapped); or minus ErrLast after
// raising 2 over a failure of FileReserve. After a failure nothing is mapped, though pView may keep
// the address.
int32_t FileMap(uint32_t size);

// Told of every file that was mapped anew or unmapped. Installed by the scanner module.
extern void (*FileMappedHook)(FileObject* file);

// Reserves the range at the first call, later releases both views, and sets the reserve up behind
// `size` bytes. Returns 0, or minus ErrLast after raising 1 or 2 (no range), 0xA0000003 or
// 0xA0000004 (not at an aligned address), 5 over the number of the first release that failed, 14
// (more than kLargestFile), 0xA000000F or 0xA0000010 (no reserve). The four long codes end the
// process: their message is a fatal one. Until FileMap follows, nobody may read the data.
int32_t FileReserve(uint32_t size);

// A filter for access violations: maps more of the current file when the address lies in its range,
// and returns -1 to go on; 0 when the exception is another's, or a write (1 in the first
// information word) to data that are mapped for reading; minus ErrLast after raising 1 when the
// file could not grow. Installed by the application; runs on the thread that touches the data.
LONG WINAPI FileFaultFilter(void* unused, EXCEPTION_POINTERS* exception);

}  // namespace quern
