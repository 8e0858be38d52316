#include "quern/cscan/define.h"

#include <cctype>
#include <cstring>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cscan/form.h"
#include "quern/cscan/scanner.h"

namespace quern {
namespace {

constexpr char kModule[] = "cscan";

constexpr uint32_t kImproper = 34;  // messages
constexpr uint32_t kNotWritable = 36;

constexpr uint32_t kDefined = 16;           // turns the kinds 1 to 4 into those that are matched
constexpr uint32_t kMaskedTable = 0x10000;  // the mode of a table with masks

char Upper(char c) { return static_cast<char>(toupper(static_cast<unsigned char>(c))); }

bool HoldsLowerCase(const char* text) {
  while (*text && Upper(*text) == *text) ++text;
  return *text != '\0';
}

void Fold(const char* text, uint32_t length, uint32_t number) {
  if (!IsBadWritePtr(const_cast<char*>(text), length)) {
    for (auto* at = const_cast<char*>(text); *at; ++at) *at = Upper(*at);
  } else if (HoldsLowerCase(text)) {
    ErrRaiseText(kModule, 782, 4, kNotWritable, number, text);
    ErrLast = 0;
  }
}

// Checks a record, the `number`th of its table, and gives it the form that is matched. `previous`
// is the kind for records that name none.
void Normalise(ScanDef* record, uint32_t number, uint32_t* previous) {
  const char* text = record->pText;
  if (!text) {
    ErrRaiseText(kModule, 742, 2, kImproper, number, text);
    return;
  }
  uint32_t length = record->nLength != 0 ? record->nLength : static_cast<uint32_t>(strlen(text));
  if (record->fFlags & SCAN_MASK) CurrentScanner->nMode = kMaskedTable;
  switch (record->fFlags & SCAN_KIND) {
    case SCAN_AS_BEFORE:
      if (*previous == 0) ErrRaiseText(kModule, 771, 3, kImproper, number, text);
      record->fFlags = *previous;
      break;
    case SCAN_STRING - kDefined:
    case SCAN_WORD - kDefined:
      record->fFlags |= kDefined;
      *previous = record->fFlags & SCAN_KIND;
      break;
    case SCAN_RANGES - kDefined:
      if (length % 2 != 0) ErrRaiseText(kModule, 758, 2, kImproper, number, text);
      [[fallthrough]];
    case SCAN_SET - kDefined:
      record->fFlags |= kDefined;
      *previous = 0;
      break;
    case SCAN_STRING:
    case SCAN_WORD:
    case SCAN_STRING_FOLD:
    case SCAN_WORD_FOLD:
      *previous = record->fFlags & SCAN_KIND;
      break;
    case SCAN_SET:
    case SCAN_RANGES:
    case SCAN_SET_FOLD:
    case SCAN_RANGES_FOLD:
      break;
    default:
      ErrRaiseText(kModule, 774, 4, kImproper, number, text);
  }
  if (record->fFlags & SCAN_FOLDED) Fold(text, length, number);
  record->nLength = length;
}

// Enters the records in the index of the current scanner. Returns the record at which it ends: the
// one behind the last, or one whose id has no slot.
ScanDef* Enter(ScanDef* table) {
  const Scanner* scanner = CurrentScanner;
  ScanDef* first = table;  // of the last symbol that was entered
  ScanDef* record = table;
  for (; record->nId != 0 && record->nId <= scanner->nHighest; ++record) {
    if (record->nId < 0) continue;
    ScanDef*& slot = scanner->pIndex[record->nId];
    if (!slot) first = slot = record;
    if (record->fFlags & SCAN_MASK) first->fFlags |= SCAN_MASKED;
  }
  return record;
}

}  // namespace

int32_t ScanDefine(ScanDef* table, uint32_t slots) {
  if (!table) return ErrRaise(kModule, 737, 1);
  if (!CurrentScanner) {
    if (!ScanSelect(nullptr)) return -ErrLast;
    CurrentScanner->header.flags |= INST_IMPLICIT;
  }
  Scanner* scanner = CurrentScanner;
  scanner->pTable = table;
  uint32_t number = 0;
  uint32_t previous = 0;
  int32_t highest = 0;
  for (ScanDef* record = table; record->nId != 0; ++record) {
    Normalise(record, ++number, &previous);
    if (record->pText && record->nId > highest) highest = record->nId;
  }
  if (highest == 0) return ErrRaise(kModule, 794, 5);
  if (slots == 0) slots = static_cast<uint32_t>(highest) + 1;
  ScanFreeIndex(scanner->pIndex);
  scanner->pIndex = ScanNewIndex(slots);
  if (!scanner->pIndex) return ErrRaise(kModule, 799, 6);
  scanner->nHighest = static_cast<int32_t>(slots - 1);
  const ScanDef* end = Enter(table);
  if (!ScanCompile(scanner->pIndex, table, end)) {
    ScanFreeIndex(scanner->pIndex);
    scanner->pIndex = nullptr;
    return ErrRaise(kModule, 799, 6);
  }
  return end->nId == 0 ? 0 : ErrRaise(kModule, 804, 7);
}

ScanDef* ScanDefFind(int32_t id) {
  const Scanner* scanner = CurrentScanner;
  if (!scanner) return nullptr;
  if (scanner->pIndex && id <= scanner->nHighest) return id >= 0 ? scanner->pIndex[id] : nullptr;
  ScanDef* record = scanner->pTable;
  while (record && record->nId != 0 && record->nId != id) ++record;
  return record;
}

}  // namespace quern
