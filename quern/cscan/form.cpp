#include "quern/cscan/form.h"

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace quern {
namespace {

bool IsSet(const ScanDef& record) {
  switch (record.fFlags & SCAN_KIND) {
    case SCAN_SET:
    case SCAN_RANGES:
    case SCAN_SET_FOLD:
    case SCAN_RANGES_FOLD:
      return true;
    default:
      return false;
  }
}

// Whether it ends a token or leaves everything as it was, so that no other record depends on it.
bool IsFinal(const ScanDef& record) {
  return ScanIsText(record) && record.pText && record.nLength > 0 &&
         (ScanIsWord(record) || !(record.fFlags & SCAN_MASK));
}

ScanMoment WhenOf(const ScanDef& record) {
  uint32_t mask = record.fFlags & SCAN_MASK;
  return mask == 0 ? kScanAlways : static_cast<ScanMoment>(mask >> 24);
}

ByteSet All() { return {{~uint64_t{0}, ~uint64_t{0}, ~uint64_t{0}, ~uint64_t{0}}}; }

void AddRange(uint8_t low, uint8_t high, ByteSet* set) {
  auto number = [](uint8_t byte) { return byte < 0x80 ? int{byte} : byte - 0x100; };
  for (int byte = number(low); byte <= number(high); ++byte) set->Add(static_cast<uint8_t>(byte));
}

// The bytes of which a set or ranges are made.
ByteSet Members(const ScanForm& form, const ScanDef& record) {
  ByteSet set = {};
  auto* text = reinterpret_cast<const uint8_t*>(record.pText);
  uint32_t length = text ? record.nLength : 0;
  switch (record.fFlags & SCAN_KIND) {
    case SCAN_SET:
      for (uint32_t i = 0; i < length; ++i) set.Add(text[i]);
      break;
    case SCAN_SET_FOLD:
      if (length == 0) break;
      set.Add(text[0]);
      set.Add(form.upper[text[0]]);
      break;
    case SCAN_RANGES_FOLD:
      for (uint32_t i = 0; i + 1 < length; i += 2)
        AddRange(form.upper[text[i]], form.upper[text[i + 1]], &set);
      [[fallthrough]];
    default:
      for (uint32_t i = 0; i + 1 < length; i += 2) AddRange(text[i], text[i + 1], &set);
  }
  return set;
}

// The bytes at which a record does not just fail.
ByteSet Starts(const ScanForm& form, const ScanDef& record) {
  if (IsSet(record)) return Members(form, record);
  if (!ScanIsText(record) || !record.pText || record.nLength == 0) return All();
  ByteSet set = {};
  auto first = static_cast<uint8_t>(record.pText[0]);
  uint32_t kind = record.fFlags & SCAN_KIND;
  if (kind == SCAN_STRING || kind == SCAN_WORD) {
    set.Add(first);
  } else {
    for (int byte = 0; byte < 256; ++byte)
      if (form.upper[byte] == form.upper[first]) set.Add(static_cast<uint8_t>(byte));
  }
  return set;
}

// How the records of a symbol work together.
struct Nature {
  bool run = true;   // sets and ranges alone
  bool list = true;  // final records alone
};

Nature NatureOf(const ScanDef* first, const ScanDef* end) {
  Nature nature;
  for (const ScanDef* record = first; record != end; ++record) {
    nature.run &= IsSet(*record);
    nature.list &= IsFinal(*record);
  }
  return nature;
}

const ScanDef* EndOf(const ScanDef* first) {
  const ScanDef* end = first;
  while (end->nId == first->nId) ++end;
  return end;
}

// Calls `take` with the first record of each symbol of the index, in table order. Records of a
// symbol that stand apart from these are never tried.
template <typename Take>
void ForEachSymbol(ScanDef** index, const ScanDef* table, const ScanDef* end, Take take) {
  for (const ScanDef* at = table; at != end; ++at)
    if (at->nId > 0 && index[at->nId] == at) take(at);
}

// Whether it takes part behind a piece of a token.
bool IsForLater(const ScanDef& record) {
  uint32_t mask = record.fFlags & SCAN_MASK;
  return mask == 0 || (mask & ~(SCAN_FIRST | SCAN_LINE_FIRST)) != 0;
}

// The only byte of a set; -1 when there are others.
int32_t Sole(const ByteSet& set) {
  int32_t sole = -1;
  for (int byte = 0; byte < 256; ++byte) {
    if (!set.Has(static_cast<uint8_t>(byte))) continue;
    if (sole >= 0) return -1;
    sole = byte;
  }
  return sole;
}

// Bytes of the tables of a group.
size_t TablesOf(const ScanDef* first) {
  const ScanDef* end = EndOf(first);
  Nature nature = NatureOf(first, end);
  if (nature.list) return 0;
  size_t members = nature.run ? 0 : static_cast<size_t>(end - first) * sizeof(ByteSet);
  return members + 256 * sizeof(ScanMoment);
}

// Fills a group, whose tables begin at `tables`.
void Describe(const ScanForm& form, const ScanDef* first, ScanGroup* group, char* tables) {
  group->nId = first->nId;
  group->masked = (first->fFlags & SCAN_MASKED) != 0;
  group->pFirst = first;
  group->pEnd = EndOf(first);
  Nature nature = NatureOf(first, group->pEnd);
  auto* pieces = nature.list ? nullptr : reinterpret_cast<ScanMoment*>(tables);
  auto* members = nature.list || nature.run ? nullptr : reinterpret_cast<ByteSet*>(pieces + 256);
  group->pPieces = pieces;
  group->pMembers = members;
  bool before = true;  // everything else that takes part behind a piece
  for (const ScanDef* record = first; record != group->pEnd; ++record) {
    ByteSet starts = Starts(form, *record);
    for (int i = 0; i < 4; ++i) group->starts.words[i] |= starts.words[i];
    if (members) members[record - first] = starts;
    if (!IsSet(*record) && IsForLater(*record)) before = false;
    if (!pieces || !before || !IsSet(*record)) continue;
    for (int byte = 0; byte < 256; ++byte)
      if (starts.Has(static_cast<uint8_t>(byte))) pieces[byte] |= WhenOf(*record);
  }
  group->sole = Sole(group->starts);
}

// Calls `take` with the first bytes and tries of a symbol of texts alone.
template <typename Take>
void ForEachText(const ScanForm& form, const ScanGroup& group, Take take) {
  for (const ScanDef* record = group.pFirst; record != group.pEnd; ++record) {
    ByteSet starts = Starts(form, *record);
    bool exact = !(record->fFlags & SCAN_FOLDED) && record->nLength > 1;
    auto second = static_cast<int16_t>(exact ? static_cast<uint8_t>(record->pText[1]) : -1);
    for (int byte = 0; byte < 256; ++byte)
      if (starts.Has(static_cast<uint8_t>(byte)))
        take(byte, ScanTry{&group, record, WhenOf(*record), second, ScanWay::kText});
  }
}

// Calls `take` with a first byte and a try, for each of both, in table order.
template <typename Take>
void ForEachTry(const ScanForm& form, Take take) {
  for (uint32_t i = 0; i < form.nGroups; ++i) {
    const ScanGroup& group = form.pGroups[i];
    if (!group.pPieces) {
      ForEachText(form, group, take);
      continue;
    }
    for (int byte = 0; byte < 256; ++byte) {
      if (!group.starts.Has(static_cast<uint8_t>(byte))) continue;
      ScanMoment when = group.pPieces[byte];
      for (const ScanDef* record = group.pFirst; group.pMembers && record != group.pEnd; ++record)
        if (group.pMembers[record - group.pFirst].Has(static_cast<uint8_t>(byte)))
          when |= WhenOf(*record);
      ScanWay way = group.pMembers ? ScanWay::kWalk : ScanWay::kPieces;
      take(byte, ScanTry{&group, nullptr, when, -1, way});
    }
  }
}

}  // namespace

ScanDef** ScanNewIndex(uint32_t slots) {
  static_assert(sizeof(ScanForm) % alignof(ScanDef*) == 0);
  uint64_t size = sizeof(ScanForm) + slots * uint64_t{sizeof(void*)};
  if (size > PTRDIFF_MAX) return nullptr;
  auto* form = static_cast<ScanForm*>(calloc(1, static_cast<size_t>(size)));
  if (!form) return nullptr;
  for (int byte = 0; byte < 256; ++byte) form->upper[byte] = static_cast<uint8_t>(toupper(byte));
  return reinterpret_cast<ScanDef**>(form + 1);
}

void ScanFreeIndex(ScanDef** index) {
  if (!index) return;
  ScanForm* form = reinterpret_cast<ScanForm*>(index) - 1;
  free(form->pGroups);
  free(form->pTries);
  free(form);
}

bool ScanCompile(ScanDef** index, const ScanDef* table, const ScanDef* end) {
  ScanForm* form = reinterpret_cast<ScanForm*>(index) - 1;
  form->pTable = end->nId == 0 ? table : nullptr;
  uint64_t tables = 0;  // bytes
  ForEachSymbol(index, table, end, [&](const ScanDef* first) {
    ++form->nGroups;
    tables += TablesOf(first);
  });
  uint64_t size = form->nGroups * uint64_t{sizeof(ScanGroup)} + tables;
  if (size >= PTRDIFF_MAX) return false;
  form->pGroups = static_cast<ScanGroup*>(calloc(1, static_cast<size_t>(size) + 1));
  if (!form->pGroups) return false;
  ScanGroup* group = form->pGroups;
  char* memory = reinterpret_cast<char*>(form->pGroups + form->nGroups);
  ForEachSymbol(index, table, end, [&](const ScanDef* first) {
    Describe(*form, first, group++, memory);
    memory += TablesOf(first);
  });
  uint64_t count = 0;
  ForEachTry(*form, [&](int byte, const ScanTry&) { ++form->begin[byte + 1], ++count; });
  if (count > INT32_MAX) return false;
  for (int byte = 0; byte < 256; ++byte) form->begin[byte + 1] += form->begin[byte];
  form->pTries = static_cast<ScanTry*>(calloc(static_cast<size_t>(count) + 1, sizeof(ScanTry)));
  if (!form->pTries) return false;
  uint32_t next[256];
  memcpy(next, form->begin, sizeof next);
  ForEachTry(*form, [&](int byte, const ScanTry& way) { form->pTries[next[byte]++] = way; });
  return true;
}

}  // namespace quern
