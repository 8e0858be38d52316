#include "quern/cscan/match.h"

#include <algorithm>
#include <cstring>

#include "quern/cerr.h"
#include "quern/cscan/form.h"
#include "quern/cscan/step.h"

namespace quern {

ScanToken* ScanPending;
int32_t ScanStatus;
ScanToken ScanRecord;

namespace {

constexpr char kModule[] = "cscan";

constexpr uint32_t kNeverHappens = 7;  // messages
constexpr uint32_t kNotConfigured = 35;

// What a token leaves of its mode for the next one: nothing of SCAN_FIRST, SCAN_MORE and
// SCAN_LINE_FIRST, and SCAN_LINE only if it is blank.
constexpr uint32_t kKept = 0x13FFFFFF;
constexpr uint32_t kKeptByBlank = kKept | SCAN_LINE;

// The mode once a piece of a token has matched.
uint32_t Continued(uint32_t mode) {
  if (mode & SCAN_MORE) return mode;
  return (mode & ~(SCAN_FIRST | SCAN_LINE_FIRST)) | 0x70000000;
}

uint8_t ByteAt(const char* at) { return static_cast<uint8_t>(*at); }

// The place of an attempt.
struct Place {
  const char* start;
  const char* end;  // of the text
  uint32_t mode;    // of symbols with masks
};

// Where an attempt ended.
struct Outcome {
  const char* end;      // of the token; its start: there is none
  const ScanDef* stop;  // the record that gives the value
  uint32_t mode;
};

// A word character behind a word. Compat: small letters and '_' are among what follows 'Z'.
bool IsWordByte(char c) {
  auto value = static_cast<int8_t>(c);
  return (value >= '0' && value <= '9') || value >= 'Z';
}

// Where the pattern of a string or word ends in the text; null when it is not there.
const char* MatchText(const ScanForm& form, const ScanDef& record, const char* at,
                      const char* end) {
  uint32_t length = record.pText ? record.nLength : 0;
  if (static_cast<size_t>(end - at) < length) return nullptr;
  uint32_t kind = record.fFlags & SCAN_KIND;
  if (kind == SCAN_STRING || kind == SCAN_WORD) {
    for (uint32_t i = 0; i < length; ++i)
      if (at[i] != record.pText[i]) return nullptr;
  } else {
    for (uint32_t i = 0; i < length; ++i)
      if (form.upper[ByteAt(at + i)] != form.upper[ByteAt(record.pText + i)]) return nullptr;
  }
  at += length;
  return ScanIsWord(record) && at != end && IsWordByte(*at) ? nullptr : at;
}

// First byte that does not continue the token.
inline const char* Behind(const ScanMoment* pieces, ScanMoment when, const char* at,
                          const char* end) {
  while (at != end && (pieces[ByteAt(at)] & when)) ++at;
  return at;
}

// A symbol whose records depend on each other.
[[gnu::noinline]] Outcome MatchWalk(const ScanForm& form, const ScanGroup& group,
                                    const Place& place, uint32_t mode) {
  const char* at = place.start;
  const ScanDef* record = group.pFirst;
  while (record != group.pEnd && at != place.end) {
    asm volatile("" ::: "memory");  // Compat: can be endless; the optimiser must keep the loop
    uint32_t mask = record->fFlags & SCAN_MASK;
    if (mask != 0 && !(mask & mode)) {
      ++record;
      continue;
    }
    switch (record->fFlags & SCAN_KIND) {
      case SCAN_STRING:
      case SCAN_STRING_FOLD:
      case SCAN_WORD:
      case SCAN_WORD_FOLD: {
        const char* behind = MatchText(form, *record, at, place.end);
        if (behind && (mask == 0 || ScanIsWord(*record))) return {behind, record, mode};
        if (behind) mode = Continued(mode);
        at = behind ? behind : place.start;
        ++record;
        break;
      }
      case SCAN_SET:
      case SCAN_SET_FOLD:
      case SCAN_RANGES:
      case SCAN_RANGES_FOLD:
        if (group.pMembers[record - group.pFirst].Has(ByteAt(at))) {
          ++at;
          mode = Continued(mode);
          if (!(mode & (SCAN_FIRST | SCAN_LINE_FIRST)))
            at = Behind(group.pPieces, ScanWhen(mode), at, place.end);
          record = group.pFirst;
        } else {
          ++record;
        }
        break;
      default:
        ErrRaiseText(kModule, 453, 1, kNeverHappens);
        return {at, record, mode};
    }
  }
  return {at, record, mode};
}

Place PlaceOf(const Scanner& scanner) {
  uint32_t line = scanner.pPosition == scanner.pLine ? SCAN_LINE | SCAN_LINE_FIRST : 0;
  return {scanner.pPosition, scanner.mbSource.pData + scanner.mbSource.nSize,
          scanner.nMode | SCAN_FIRST | line};
}

// The record that the caller provides, or the one of the process.
ScanToken* TokenRecord() {
  if (!ScanPending) ScanPending = &ScanRecord;
  return ScanPending;
}

// The first token that one of the ways gives; null when none does.
ScanToken* FirstOf(Scanner* scanner, const ScanForm& form, const ScanTry* way, const ScanTry* end) {
  const Place place = PlaceOf(*scanner);
  for (; way != end; ++way) {
    const ScanGroup& group = *way->pGroup;
    const uint32_t mode = group.masked ? place.mode : 0;
    if (!(way->when & ScanWhen(mode))) continue;
    Outcome outcome;
    switch (way->way) {
      case ScanWay::kText:
        if (way->second >= 0 &&
            (place.end - place.start < 2 || ByteAt(place.start + 1) != way->second))
          continue;
        outcome = {MatchText(form, *way->pRecord, place.start, place.end), way->pRecord, mode};
        if (!outcome.end) continue;
        break;
      case ScanWay::kPieces:
        outcome.mode = Continued(mode);
        outcome.end = Behind(group.pPieces, ScanWhen(outcome.mode), place.start + 1, place.end);
        outcome.stop = outcome.end == place.end ? group.pFirst : group.pEnd;
        break;
      default:
        outcome = MatchWalk(form, group, place, mode);
        if (outcome.end == place.start) continue;
    }
    if (outcome.mode != 0)
      scanner->nMode = outcome.mode & (group.nId == kScanBlank ? kKeptByBlank : kKept);
    ScanToken* token = TokenRecord();
    token->pStart = place.start;
    token->nId = group.nId;
    token->nLength = static_cast<uint32_t>(outcome.end - place.start);
    token->nValue = outcome.stop->nValue;
    return token;
  }
  return nullptr;
}

const ScanGroup& GroupOf(const ScanForm& form, const ScanDef* first) {
  return *std::lower_bound(
      form.pGroups, form.pGroups + form.nGroups, first,
      [](const ScanGroup& group, const ScanDef* record) { return group.pFirst < record; });
}

bool IsWithin(const Scanner& scanner) {
  auto offset = static_cast<uintptr_t>(scanner.pPosition - scanner.mbSource.pData);
  return offset < scanner.mbSource.nSize;
}

}  // namespace

ScanToken* ScanSymbol(int32_t id) {
  Scanner* scanner = CurrentScanner;
  if (!scanner) return nullptr;
  if (id > scanner->nHighest) {
    ScanAdvance(0);
    if (ScanStatus != id) return nullptr;
    ScanToken* token = TokenRecord();
    token->pStart = nullptr;
    token->nLength = 0;
    token->nId = id;
    return token;
  }
  if (!IsWithin(*scanner)) {
    ScanAdvance(0);
    if (ScanStatus != 0) return nullptr;
  }
  const ScanForm* form = ScanFormOf(scanner->pIndex);
  if (!form || id < 0) return nullptr;
  const ScanDef* first = scanner->pIndex[id];
  if (!first) return ErrRaiseText(kModule, 330, 1, kNotConfigured, id), nullptr;
  const ScanGroup* group = &GroupOf(*form, first);
  uint8_t byte = ByteAt(scanner->pPosition);
  if (!group->starts.Has(byte)) return nullptr;
  const ScanTry* end = form->pTries + form->begin[byte + 1];
  const ScanTry* way = std::lower_bound<const ScanTry*>(
      form->pTries + form->begin[byte], end, group,
      [](const ScanTry& at, const ScanGroup* of) { return at.pGroup < of; });
  const ScanTry* behind = way;
  while (behind != end && behind->pGroup == group) ++behind;
  return FirstOf(scanner, *form, way, behind);
}

ScanToken* ScanFirstSymbol() {
  Scanner* scanner = CurrentScanner;
  const ScanForm* form = ScanFormOf(scanner->pIndex);
  bool whole = form && scanner->pTable && form->pTable == scanner->pTable;
  if (whole && scanner->cbfMatch == ScanSymbol && IsWithin(*scanner)) {
    const uint32_t* begin = form->begin + ByteAt(scanner->pPosition);
    return FirstOf(scanner, *form, form->pTries + begin[0], form->pTries + begin[1]);
  }
  ScanToken* token = nullptr;
  const ScanDef* record = scanner->pTable;
  while (record && !token && record->nId != 0) {
    int32_t id = record->nId;
    token = ScanPending = scanner->cbfMatch ? scanner->cbfMatch(id) : nullptr;
    while (record->nId == id) ++record;
  }
  return token;
}

uint32_t ScanHopeless(int32_t id) {
  const Scanner& scanner = *CurrentScanner;
  const ScanForm* form = ScanFormOf(scanner.pIndex);
  bool known = form && scanner.cbfMatch == ScanSymbol && id >= 0 && id <= scanner.nHighest &&
               scanner.pIndex[id] && IsWithin(scanner);
  if (!known) return 0;
  const ScanGroup& group = GroupOf(*form, scanner.pIndex[id]);
  const char* end = scanner.mbSource.pData + scanner.mbSource.nSize;
  const char* at = scanner.pPosition;
  if (group.sole >= 0) {
    auto* hit = static_cast<const char*>(memchr(at, group.sole, static_cast<size_t>(end - at)));
    at = hit ? hit : end;
  }
  while (at != end && !group.starts.Has(ByteAt(at))) ++at;
  return static_cast<uint32_t>(at - scanner.pPosition);
}

}  // namespace quern
