// The scanner object, an instance of class 'SCAN', and the texts that it reads.
#pragma once

#include <cstdint>

#include "quern/cfile/object.h"
#include "quern/cmem/buffer.h"
#include "quern/cscan/define.h"
#include "quern/quern.h"

namespace quern {

inline constexpr uint32_t kScanTag = ClassTag("SCAN");

struct ScanToken {
  const char* pStart;  // in the scanner's text; null for the end
  int32_t nId;
  uint32_t nReserved;  // never written
  uint32_t nLength;    // bytes
  uintptr_t nValue;    // of a record: the one that ended the token, or the one where the search for
                       // more of it ended: behind the symbol's records, or where the text ended
};
static_assert(sizeof(void*) != 4 || sizeof(ScanToken) == 20);

// In header.flags.
inline constexpr uint32_t SCAN_STREAMED = 0x1000;  // refilled at the text's end
inline constexpr uint32_t SCAN_VIEW = 0x2000;      // the text is the view of a mapped file

struct Scanner {
  InstanceHeader header;
  FileObject* pFile;           // the source; null for a text in memory. Closed with the scanner
  InstanceHeader* pCompanion;  // released with the scanner through its procedure; may be null
  const char* pPosition;
  const char* pLine;  // where the line begins
  uint32_t nLine;     // from 1
  uint32_t nColumn;   // from 0; valid behind the calls that say so
  uint32_t nMode;     // what tokens leave for the masks of later ones
  MemBuf mbSource;    // pData and nSize are the text; nAlloc is not 0 where the scanner owns it
  MemBuf mbValue;     // what ScanRun, ScanSetValue and ScanAddValue collect
  uint32_t nValue;    // as ScanSetValue leaves it
  ScanToken* (*cbfMatch)(int32_t id);  // ScanSymbol unless the caller set another
  uint32_t (*cbfRefill)();             // reads more of a streamed source; returns how many bytes
  ScanDef* pTable;                     // the caller's
  int32_t nHighest;                    // id up to which symbols are looked up
  ScanDef** pIndex;                    // first records by id; owned
};
static_assert(sizeof(void*) != 4 || sizeof(Scanner) == 112);

extern Scanner* CurrentScanner;  // null while no scanner is current

// The token that the last call found and did not step over; null when there is none. It is a static
// record that every call overwrites, unless the caller makes it point to one of its own, which
// ScanSymbol, ScanMatch and ScanRun fill then (to ScanGet it is a token to step over).
extern ScanToken* ScanPending;

// 0, the id of the pending token, or kScanBegin or kScanEnd.
extern int32_t ScanStatus;

// Makes `object` (a scanner, zeroed memory for one, or null: allocated) the current scanner and
// returns it. Null after raising 1000.
Scanner* ScanSelect(void* object);

// ScanSelect, and makes `file` its source: the mapped data, or with FO_STREAMED the lines of the
// stream, or with FO_STREAM_BUFFER all that the stream holds. Scanner and file release each other
// from then on; a file that it read before still takes the scanner with it. Null after raising 1
// (no file) or 2 (no scanner).
Scanner* ScanAttachFile(void* object, FileObject* file);

// Opens a file (FileOpen) for a new scanner with a table, and makes it the current one. Null after
// raising 1 (not opened), 2 (not bound) or 3 (the table; file and scanner stay).
//
// Every scanner that had a file with FO_STREAMED costs about 300 bytes until the process ends:
// tokens point into its block, so that the block is never freed. Where many files are read,
// FO_STREAM_BUFFER and FO_MAPPED cost nothing afterwards.
Scanner* ScanOpen(const char* name, uint32_t mode, ScanDef* table);

// A new scanner of `length` bytes at `text`, which must outlive it. Null after raising 1 (the text
// cannot be read), 2 (no scanner) or 3 (the table; the scanner stays).
Scanner* ScanText(const char* text, uint32_t length, ScanDef* table);

// Takes the text from the source again and goes to its beginning. Returns 0, or minus ErrLast after
// raising 1 (the stream cannot be sought; no symbols are defined) or when there is no memory. Text,
// position and pending token stay then as they are; a scanner that owned no text has none.
int32_t ScanRewind();

// The refill of streamed sources: the next line, its line end included, or as many bytes of it as
// the block holds (256). A CR alone ends a line, too (as the last byte of the stream it does so
// again and again). Compat: of CR LF the line feed is replaced by the letter 'a'. Returns how many
// bytes.
uint32_t ScanReadLine();

// Class procedure of 'SCAN'. Closes the source, releases the companion. The block of a streamed
// source stays valid, since tokens point into it.
uint32_t ScanClass(uintptr_t argument);

// Frees the blocks that stayed. For the end of the library.
void ScanFreeRetired();

}  // namespace quern
