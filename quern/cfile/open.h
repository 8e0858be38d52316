// Opening and closing files.
#pragma once

#include <cstdint>

#include "quern/cfile/object.h"

namespace quern {

// Makes `object` (a file object, zeroed memory for one, or null: allocated) the current file and
// returns it. Null after raising 1000.
FileObject* FileSelect(void* object);

// Opens a file as a buffered stream or, with FO_MAPPED, maps it into memory, in `object` as for
// FileSelect, and makes it the current file. A null name opens the current file again, by the full
// path in its name record; its mapped data stay where they are. Close an object before it opens
// another file: the first one would stay as large as it was mapped.
//
// Returns the object; null after raising
//   1 no object   2 no name record   3 no memory for the backup's name, or no facts (FO_STAT)
//   6 no current file, 7 none with a name record, to open again
//   0x80000013 (mapped), 0x8000001D (stream): no such access value
//   0x2000000B to 0x20000011: 10 + kind, the system refused (mapped)
//   21 to 26: 20 + kind, the runtime refused (stream); 24 also when anything has the name of a file
//   to be made new
//   20 the stream's size could not be told   7 the file could not be mapped
// A backup that could not be made is raised (0x80000004, 0x80000005) and reported, and the open
// goes on. What was set before a failure stays set, and the object stays current; but flags and
// view always agree, so that the next edit fails with a code or works. A file of 4 GiB and more is
// not mapped, for reading either.
//
// With FO_EXISTS alone nothing is opened: null when the file cannot be read, else not null, and no
// object.
//
// The backup's path is the temporary folder followed by the full path of a temporary file there.
// Compat: most systems have no such folder, and then there is no backup. It is a new file for its
// owner alone; where anything has its name there is no backup either.
//
// Compat: a stream that is opened again as a mapped file keeps its stream, so that FileReplace
// takes positions for offsets and refuses addresses.
FileObject* FileOpen(void* object, const char* name, uint32_t flags);

// Class procedure of 'FILE'. Closing cuts a mapped file on the disk to its data size, and raises
// 0x20000002, 0x20000003 (mapped) or 4 (stream) when its end could not be set; it closes all the
// same. A backup stays. In a forked child a file that its parent opened is let go of: nothing of it
// is cut, written or moved, and nothing is raised.
uint32_t FileClass(uintptr_t argument);

// Closes the current file, cut to the size that it was opened with and replaced by its backup, if
// there is one. Changes of the old bytes themselves stay without one. Returns 0; minus ErrLast
// after raising 1 (no file) or 0x20000002 (the backup could not be put back). In a forked child a
// file of its parent is let go of, and the result is 0.
//
// Compat: a mapped file for writing raises 0x20000002 and 0x20000003 on the way.
int32_t FileRevert();

}  // namespace quern
