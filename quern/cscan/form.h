// The compiled table, indexed by first byte.
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
  int32_t nId;
  bool masked;  // the mode is that of the scanner; else 0
  const ScanDef* pFirst;
  const ScanDef* pEnd;  // behind the last one
  // Per byte: contexts in which it continues a token, by sets and ranges that come before every
  // other record that could apply there. Null for texts alone.
  const ScanMoment* pPieces;
  const ByteSet* pMembers;  // of each record's set or ranges; null where nothing else is there
  ByteSet starts;           // bytes that a token may begin with in some mode
  int32_t sole;             // the only one of them; -1 when there are others
};

// A way for a symbol to begin with a certain byte, at certain moments.
enum class ScanWay : uint8_t {
  kText,    // a record by itself: a word, or an unmasked string
  kPieces,  // sets and ranges alone
  kWalk,    // records that depend on each other
};
struct ScanTry {
  const ScanGroup* pGroup;
  const ScanDef* pRecord;  // of kText
  ScanMoment when;
  int16_t second;  // of kText: the byte that must follow; -1 when it does not matter
  ScanWay way;
};

// Owned by the scanner, in front of its index.
struct ScanForm {
  const ScanDef* pTable;  // whose symbols it holds; null when it holds some of them only
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
