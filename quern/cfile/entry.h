// The module's functions on a given file object. Each leaves the current file as it was (null when
// that file was deleted meanwhile).
//
// The functions that edit return 0 (FileObjResize the failure's value) if `object` is not a file
// object; the current file may then change. They are not reentrant.
#pragma once

#include <cstdint>

#include "quern/cfile/object.h"

namespace quern {

FileObject* FileObjOpen(void* object, const char* name, uint32_t flags);
FileObject* FileObjOpenBeside(const char* baseName, const char* extension, uint32_t flags);
FileObject* FileObjSelect(void* object);
uint32_t FileObjClose(FileObject* object);

int32_t FileObjResize(FileObject* object, int32_t delta);
int32_t FileObjReplace(FileObject* object, char* pos, uint32_t length, const void* newBytes,
                       uint32_t newLength);
int32_t FileObjVPrintf(FileObject* object, char* pos, uint32_t length, const char* format, ...);
int32_t FileObjPrintf(FileObject* object, char* pos, const char* format, ...);
int32_t FileObjAppendf(FileObject* object, const char* format, ...);

}  // namespace quern
