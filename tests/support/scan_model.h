// The rules of matching symbol by symbol, record by record and byte by byte, without tables.
//
// A scanner that has Interpret as its cbfMatch takes none of the short cuts of one with ScanSymbol
// and must do the same. Where a call would not return, would end the process or would raise more
// than the error stack holds, the text ends at once.
#pragma once

#include <cctype>

#include "quern/cerr.h"
#include "quern/cscan.h"
#include "quern/cscan/match.h"

namespace tavrix_test {

inline int interpreter_budget;  // calls of Interpret that are left; below 0 it has stopped

inline char UpperByte(char c) {
  return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

inline quern::ScanToken* StopInterpreter() {
  quern::Scanner* scanner = quern::CurrentScanner;
  interpreter_budget = -1;
  scanner->header.flags &= ~quern::SCAN_STREAMED;
  scanner->mbSource.nSize = 0;
  scanner->pPosition = scanner->mbSource.pData + 9;  // from which a step back ends the text, too
  quern::ScanRecord = {};
  return &quern::ScanRecord;  // which ends all searches but those that skip it
}

// Whether the pattern is the text at `at`, which is behind it then.
inline bool IsPattern(const quern::ScanDef& def, const char*& at, const char* end) {
  const bool folds = def.fFlags & quern::SCAN_FOLDED;
  for (uint32_t i = 0; def.pText && i < def.nLength; ++i, ++at) {
    if (at == end) return false;
    if (folds ? UpperByte(*at) != UpperByte(def.pText[i]) : *at != def.pText[i]) return false;
  }
  return true;
}

// Compat: small letters and '_' are among what follows 'Z'.
inline bool IsWordCharacter(char c) {
  const auto byte = static_cast<signed char>(c);
  return (byte >= '0' && byte <= '9') || byte >= 'Z';
}

// Whether the byte is in a set or in ranges.
inline bool IsMember(const quern::ScanDef& def, char byte) {
  const auto within = [byte](char low, char high) {
    const auto value = static_cast<signed char>(byte);
    return static_cast<signed char>(low) <= value && value <= static_cast<signed char>(high);
  };
  const uint32_t kind = def.fFlags & quern::SCAN_KIND, length = def.pText ? def.nLength : 0;
  const char* text = def.pText;
  if (kind == quern::SCAN_SET_FOLD)
    return length > 0 && (byte == text[0] || byte == UpperByte(text[0]));
  for (uint32_t i = 0; kind == quern::SCAN_SET && i < length; ++i)
    if (byte == text[i]) return true;
  for (uint32_t i = 0; kind != quern::SCAN_SET && i + 1 < length; i += 2) {
    if (within(text[i], text[i + 1])) return true;
    if (kind == quern::SCAN_RANGES_FOLD && within(UpperByte(text[i]), UpperByte(text[i + 1])))
      return true;
  }
  return false;
}

// What ScanSymbol must do.
inline quern::ScanToken* Interpret(int32_t id) {
  using namespace quern;
  Scanner& scanner = *CurrentScanner;
  const char *start = scanner.pPosition, *at = start;
  const auto token = [id, &at](const char* from, uintptr_t value) {
    if (!ScanPending) ScanPending = &ScanRecord;
    *ScanPending = {from, id, ScanPending->nReserved, static_cast<uint32_t>(from ? at - from : 0),
                    value};
    return ScanPending;
  };
  if (--interpreter_budget < 0) return StopInterpreter();
  if (id > scanner.nHighest) {
    ScanAdvance(0);
    return ScanStatus == id ? token(nullptr, (ScanPending ? *ScanPending : ScanRecord).nValue)
                            : nullptr;
  }
  if (static_cast<uintptr_t>(start - scanner.mbSource.pData) >= scanner.mbSource.nSize) {
    ScanAdvance(0);
    if (ScanStatus != 0) return nullptr;
    start = at = scanner.pPosition;
  }
  if (!scanner.pIndex || id < 0) return nullptr;
  const ScanDef *first = scanner.pIndex[id], *def = first;
  if (!first) {
    if (ErrCurrent && ErrCurrent->nCount + 3 >= kErrEntries) return StopInterpreter();
    return ErrRaiseText("cscan", 330, 1, 35, id), nullptr;
  }
  const char* end = scanner.mbSource.pData + scanner.mbSource.nSize;
  uint32_t mode = 0;
  if (first->fFlags & SCAN_MASKED)
    mode = scanner.nMode | SCAN_FIRST | (start == scanner.pLine ? SCAN_LINE | SCAN_LINE_FIRST : 0);
  const auto piece = [&mode] {
    if (!(mode & SCAN_MORE)) mode = (mode & ~(SCAN_FIRST | SCAN_LINE_FIRST)) | 0x70000000;
  };
  bool accepted = false;
  for (int steps = 0; !accepted && def->nId == id && at != end; ++steps) {
    if (steps > 5000) return StopInterpreter();  // the same place, record and mode for ever
    const uint32_t mask = def->fFlags & SCAN_MASK, kind = def->fFlags & SCAN_KIND;
    if (mask != 0 && !(mask & mode)) {
      ++def;
    } else if (kind == SCAN_WORD || kind == SCAN_WORD_FOLD) {
      accepted = IsPattern(*def, at, end) && (at == end || !IsWordCharacter(*at));
      if (!accepted) at = start, ++def;
    } else if (kind == SCAN_STRING || kind == SCAN_STRING_FOLD) {
      const bool same = IsPattern(*def, at, end);
      accepted = same && mask == 0;
      if (!same) at = start;
      if (same && mask != 0) piece();
      if (!accepted) ++def;
    } else if (kind != SCAN_SET && kind != SCAN_RANGES && kind != SCAN_SET_FOLD &&
               kind != SCAN_RANGES_FOLD) {
      return StopInterpreter();  // no such kind
    } else if (IsMember(*def, *at)) {
      ++at, piece(), def = first;
    } else {
      ++def;
    }
  }
  if (at == start) return nullptr;
  if (mode != 0) scanner.nMode = mode & (id == kScanBlank ? 0x1BFFFFFF : 0x13FFFFFF);
  return token(start, def->nValue);
}

}  // namespace tavrix_test
