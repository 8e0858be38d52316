// A table as the matcher likes it: what may begin with which byte.
#pragma once

#include <cstdint>

#include "quern/cscan/define.h"

namespace quern {

struct ByteSet {
  uint64_t words[4];

  bool Has(uint8_t byte) const { return words[byte >> 6] >> (byte & 63) & 1; }
  void Add(uint8_t byte) { words[byte >> 6] |= uint64_t{1} << (byte & 63); }
};

// When something takes part, as bits to compare with ScanWhen: those of a context mask, in the low
// byte, or kScanAlways.
using ScanMoment = uint16_t;
inline constexpr ScanMoment kScanAlways = 0x100;
inline ScanMoment ScanWhen(uint32_t mode) {
  return static_cast<ScanMoment>(kScanAlways | mode >> 24);
}

inline bool ScanIsText(const ScanDef& record) {  // a string or word
  uint32_t kind = record.fFlags & SCAN_KIND;
  return kind == SCAN_STRING || kind == SCAN_WORD || kind == SCAN_STRING_FOLD ||
         kind == SCAN_WORD_FOLD;
}
inline bool ScanIsWord(const ScanDef& record) {
  uint32_t kind = record.fFlags & SCAN_KIND;
  return kind == SCAN_WORD || kind == SCAN_WORD_FOLD;
}

// The records of a symbol.
struct ScanGroup {
  const ScanDef* pFirst;
  const ScanDef* pEnd;  // behind the last one
  ByteSet starts;       // bytes that a token may begin with in some mode
  // Of a symbol of sets and ranges alone: when each byte is a piece. Else null.
  const ScanMoment* pRun;
  // Of a symbol whose records depend on each other: the members of each record's set or ranges.
  const ByteSet* pMembers;
};

// A way for a symbol to begin with a certain byte, at certain moments.
enum class ScanWay : uint8_t {
  kText,  // a record by itself: a word, or an unmasked string
  kRun,   // pRun
  kWalk,  // all records in turn
};
struct ScanTry {
  const ScanDef* pRecord;  // of kText
  const ScanGroup* pGroup;
  ScanMoment when;
  ScanWay way;
};

// Owned by the scanner, in front of its index.
struct ScanForm {
  bool complete;  // it holds all symbols of the table
  uint8_t upper[256];
  uint32_t nGroups;
  ScanGroup* pGroups;   // in table order
  ScanTry* pTries;      // by first byte, in table order
  uint32_t begin[257];  // those of a byte: from begin[byte] up to begin[byte + 1]
};

// The index of a table with a form: `slots` null pointers. Null when there is no memory.
ScanDef** ScanNewIndex(uint32_t slots);
void ScanFreeIndex(ScanDef** index);  // null: nothing

// Fills the form of an index from the table up to `end`. False when there is no memory.
bool ScanCompile(ScanDef** index, const ScanDef* table, const ScanDef* end);

// Null without an index.
inline const ScanForm* ScanFormOf(ScanDef** index) {
  return index ? reinterpret_cast<ScanForm*>(index) - 1 : nullptr;
}

}  // namespace quern
