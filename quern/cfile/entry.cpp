#include "quern/cfile/entry.h"

#include <cstdarg>

#include "quern/cerr.h"
#include "quern/cfile/beside.h"
#include "quern/cfile/content.h"
#include "quern/cfile/open.h"
#include "quern/cobj.h"

namespace quern {
namespace {

// Keeps the current file in the slot that the registry clears when that file goes.
void Save() { ClsSavedFile = reinterpret_cast<InstanceHeader*>(CurrentFile); }

template <typename Result>
Result Restored(Result result) {
  CurrentFile = reinterpret_cast<FileObject*>(ClsSavedFile);
  return result;
}

}  // namespace

FileObject* FileObjOpen(void* object, const char* name, uint32_t flags) {
  Save();
  return Restored(FileOpen(object, name, flags));
}

FileObject* FileObjOpenBeside(const char* baseName, const char* extension, uint32_t flags) {
  Save();
  return Restored(FileOpenBeside(baseName, extension, flags));
}

FileObject* FileObjSelect(void* object) {
  Save();
  return Restored(FileSelect(object));
}

uint32_t FileObjClose(FileObject* object) {
  Save();
  return Restored(FileClass(reinterpret_cast<uintptr_t>(object)));
}

int32_t FileObjResize(FileObject* object, int32_t delta) {
  Save();
  if (!FileSelect(object)) return ErrLast;
  return Restored(FileResize(delta));
}

int32_t FileObjReplace(FileObject* object, char* pos, uint32_t length, const void* newBytes,
                       uint32_t newLength) {
  Save();
  if (!FileSelect(object)) return 0;
  return Restored(FileReplace(pos, length, newBytes, newLength));
}

int32_t FileObjVPrintf(FileObject* object, char* pos, uint32_t length, const char* format, ...) {
  Save();
  if (!FileSelect(object)) return 0;
  va_list arguments;
  va_start(arguments, format);
  int32_t change = FileFormatList(pos, length, format, arguments);
  va_end(arguments);
  return Restored(change);
}

int32_t FileObjPrintf(FileObject* object, char* pos, const char* format, ...) {
  Save();
  if (!FileSelect(object)) return 0;
  va_list arguments;
  va_start(arguments, format);
  int32_t change = FileFormatList(pos, 0, format, arguments);
  va_end(arguments);
  return Restored(change);
}

int32_t FileObjAppendf(FileObject* object, const char* format, ...) {
  Save();
  if (!FileSelect(object)) return 0;
  va_list arguments;
  va_start(arguments, format);
  int32_t change = FileFormatList(CurrentFile->pView + CurrentFile->nSize, 0, format, arguments);
  va_end(arguments);
  return Restored(change);
}

}  // namespace quern
