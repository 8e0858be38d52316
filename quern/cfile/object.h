// The file object, an instance of class 'FILE': what every file of this module works on.
#pragma once

#include <cstdint>
#include <cstdio>

#include "platform/win32.h"
#include "quern/quern.h"

namespace quern {

inline constexpr uint32_t kFileTag = ClassTag("FILE");

// Open flags. FO_ACCESS of them is the access value, a number of its own: 1 reading, 2 reading and
// writing, 16 a new file, 18 a file that is made when it is missing, 32 a file that is emptied or
// made, 64 a file that is emptied. 8 and 9 count as 1, 10 as 2.
inline constexpr uint32_t FO_READ = 0x1;       // also added when the file was opened for reading
inline constexpr uint32_t FO_WRITE = 0x2;      // also added when it was opened for writing
inline constexpr uint32_t FO_ZERO_END = 0x4;   // a zero byte behind the data of a mapped file
inline constexpr uint32_t FO_KEEP_NAME = 0x8;  // name record; reopened for writing when resized
inline constexpr uint32_t FO_CREATE_NEW = 0x10;
inline constexpr uint32_t FO_CREATE = 0x20;
inline constexpr uint32_t FO_TRUNCATE = 0x40;
inline constexpr uint32_t FO_ACCESS = 0x7B;
inline constexpr uint32_t FO_EXISTS = 128;       // the whole word: can it be read?
inline constexpr uint32_t FO_NAME = 0x100;       // name record
inline constexpr uint32_t FO_STAT = 0x200;       // attributes, size and times in it
inline constexpr uint32_t FO_BACKUP = 0x400;     // a copy in the temporary folder first
inline constexpr uint32_t FO_STREAMED = 0x1000;  // resizing moves the stream
inline constexpr uint32_t FO_STREAM_BUFFER = 0x2000;
inline constexpr uint32_t FO_MAPPED = 0x4000;       // mapped into memory; else a buffered stream
inline constexpr uint32_t FO_GROW_MASK = 0xF0000;   // how far a mapping grows at a time: a page, or
inline constexpr uint32_t FO_GROW_NONE = 0x10000;   // never
inline constexpr uint32_t FO_GROW_10K = 0x20000;    // 10,000 bytes
inline constexpr uint32_t FO_GROW_100K = 0x30000;   // 100,000
inline constexpr uint32_t FO_GROW_1M = 0x40000;     // 1,000,000
inline constexpr uint32_t FO_GROW_5M = 0x50000;     // 5,000,000
inline constexpr uint32_t FO_GROW_10M = 0x70000;    // 10,000,000
inline constexpr uint32_t FO_GROW_TENTH = 0x80000;  // a tenth of its first size
inline constexpr uint32_t FO_GROW_THIRD = 0x90000;  // three tenths
inline constexpr uint32_t FO_GROW_HALF = 0xA0000;
inline constexpr uint32_t FO_GROW_TWICE = 0xB0000;  // by its first size
inline constexpr uint32_t FO_SEP_MASK = 0xF00000;  // what separates records, for edits at the limit
inline constexpr uint32_t FO_SEP_SECTION = 0x100000;  // '['
inline constexpr uint32_t FO_SEP_BLOCK = 0x200000;    // an empty line
inline constexpr uint32_t FO_SEP_LINE = 0x300000;     // a line end

// The largest view of a file, and the limit of data size that a file for writing begins with.
inline constexpr uint32_t kLargestFile = 200'000'000;

struct FileNameRec;
struct FileObject;

// How a scanner begins: all that a file knows of its own.
struct FileScanner {
  InstanceHeader header;
  FileObject* pFile;
};

struct FileObject {
  InstanceHeader header;
  FILE* pStream;  // of a stream file
  uint32_t nStreamAux;
  HANDLE hFile;        // of a mapped file; null when none
  char* pView;         // the mapped data; the base of its range once there is one
  HANDLE hMap;         // its mapping; null when nothing is mapped there
  char* pExtView;      // the reserve behind it, which nobody may touch
  HANDLE hExtMap;      // its mapping; null when there is none
  uint32_t nMaxSize;   // bytes, the limit of nSize
  uint32_t nOpenSize;  // nSize when the file was opened
  uint32_t nDelta;     // sum of all changes of size
  uint32_t nSize;      // bytes of data
  uint32_t nMapped;    // bytes mapped
  uint32_t nGrow;      // bytes by which a mapping grows; 0 when it does not
  uint32_t fFlags;     // FO_ flags
  uint32_t nReverted;
  char* pszBackup;        // path of the backup copy, owned
  FileNameRec* pName;     // owned
  FileScanner* pScanner;  // deleted with the file, as the file is with it
};
static_assert(sizeof(void*) != 4 || sizeof(FileObject) == 100);

extern FileObject* CurrentFile;  // null while no file is current

}  // namespace quern
