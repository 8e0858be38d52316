// Companion files: the .ini and .log of a program.
#pragma once

#include <cstdint>

#include "quern/cfile/object.h"

namespace quern {

// Opens the companion of `baseName` (null: the running program): that path with the extension in
// place of everything from its last dot on, even if that dot is in a directory name (Compat). A
// null extension is ".ini" with FO_SEP_SECTION in the flags, else ".log" with FO_SEP_BLOCK.
//
// It is searched for in its own directory, when the path has one, then in the current one, then in
// those of %path%, and opened as FileOpen does, in a new object; when it is nowhere, by its bare
// name. It searches with FileList, which ends any enumeration in progress.
//
// Returns the object; null after raising 1 (no extension, or no path of the program), 2 (an empty
// base name, or a path of 260 bytes and more), or what FileOpen raises.
FileObject* FileOpenBeside(const char* baseName, const char* extension, uint32_t flags);

}  // namespace quern
