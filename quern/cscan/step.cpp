#include "quern/cscan/step.h"

#include <cstdarg>
#include <cstring>

#include "quern/cscan/match.h"

namespace quern {
namespace {

ScanToken* Match(const Scanner& scanner, int32_t id) {
  return scanner.cbfMatch ? scanner.cbfMatch(id) : nullptr;
}

// Makes a token pending, with its id as the status.
ScanToken* Found(ScanToken* token) {
  ScanPending = token;
  if (token) ScanStatus = token->nId;
  return token;
}

// ScanAdvance, with the usual case in place.
inline void Step(Scanner* scanner, uint32_t length) {
  auto offset = static_cast<size_t>(scanner->pPosition - scanner->mbSource.pData) + length;
  if (offset < scanner->mbSource.nSize) {
    scanner->pPosition += length;
  } else {
    ScanAdvance(length);
  }
}

void Forget(ptrdiff_t delta) {
  ScanAdvance(delta);
  ScanPending = nullptr;
}

void MarkColumn(Scanner* scanner) {
  scanner->nColumn = static_cast<uint32_t>(scanner->pPosition - scanner->pLine);
}

ScanToken* EndToken() {
  ScanStatus = 0;
  ScanAdvance(0);
  if (ScanStatus != kScanEnd) return nullptr;
  ScanRecord = {};
  ScanRecord.nId = kScanEnd;
  return &ScanRecord;
}

// The value becomes what stands from `start` up to `end`; nothing when that is no part of the text:
// when they have changed places, or a refill has put other lines there.
void Collect(Scanner* scanner, const char* start, const char* end) {
  const MemBuf& text = scanner->mbSource;
  auto from = static_cast<size_t>(start - text.pData);
  auto to = static_cast<size_t>(end - text.pData);
  bool part = from < to && to <= text.nSize;
  MemBufSet(&scanner->mbValue, start, part ? static_cast<uint32_t>(to - from) : 0);
}

// Steps over bytes that cannot begin a symbol, as single steps do: those that stay within the text
// clear the status, and the one that refills it does not.
void SkipHopeless(int32_t id) {
  const uint32_t count = ScanHopeless(id);
  if (count > 1) ScanAdvance(count - 1);
  if (count > 0) ScanAdvance(1);
}

// `each` calls its argument with the ids of a list, in turn, until that gives a token.
template <typename Each>
ScanToken* FirstOf(uint32_t flags, Each each) {
  Scanner* scanner = CurrentScanner;
  if (!scanner) return nullptr;
  const int32_t step = flags & SCAN_BACKWARD ? kScanBack : kScanSkip;
  if ((flags & SCAN_BACKWARD) && ScanPending) ScanGet(kScanBack);
  while (ScanStatus != kScanEnd) {
    asm volatile("" ::: "memory");  // Compat: can be endless; the optimiser must keep the loop
    ScanToken* token = each(ScanGet);
    if (flags & SCAN_WHILE) {
      if (!token) return nullptr;
    } else if (token) {
      if (ScanStatus == kScanLineEnd) MarkColumn(scanner);
      return token;
    }
    ScanGet(step);
  }
  return nullptr;
}

// Whether a word ends a list of ids.
bool EndsList(int32_t word) { return word <= 0; }

}  // namespace

void ScanAdvance(ptrdiff_t delta) {
  Scanner* scanner = CurrentScanner;
  MemBuf* text = &scanner->mbSource;
  ptrdiff_t offset = scanner->pPosition - text->pData + delta;
  if (offset >= 0 && offset < static_cast<ptrdiff_t>(text->nSize)) {
    scanner->pPosition = text->pData + offset;
    ScanStatus = 0;
  } else if (offset < 0) {
    scanner->pPosition = text->pData;
    scanner->pLine = text->pData;
    scanner->nLine = 1;
    ScanStatus = kScanBegin;
  } else if (scanner->header.flags & SCAN_STREAMED) {
    uint32_t count = scanner->cbfRefill ? scanner->cbfRefill() : 0;
    scanner->pLine = text->pData;
    scanner->pPosition = text->pData;
    text->nSize = count;
    if (count == 0) ScanStatus = kScanEnd;
  } else {
    scanner->pPosition = text->pData + text->nSize;
    ScanStatus = kScanEnd;
  }
}

ScanToken* ScanGet(int32_t id) {
  Scanner* scanner = CurrentScanner;
  if (!scanner) return nullptr;
  ScanStatus = 0;
  switch (id) {
    case kScanBegin:
      return nullptr;
    case kScanEnd:
      return EndToken();
    case kScanSkip:
      Forget(ScanPending ? ScanPending->nLength : 1);
      return nullptr;
    case kScanBack:
      Forget(-1);
      return nullptr;
    case kScanRefresh:
      Forget(0);
      return nullptr;
    default:
      break;
  }
  if (ScanPending) {
    Step(scanner, ScanPending->nLength);
    if (ScanPending->nId == kScanLineEnd) {
      scanner->pLine = scanner->pPosition;
      scanner->nColumn = 0;
      ++scanner->nLine;
    }
    ScanPending = nullptr;
  }
  if ((ScanStatus != 0 && ScanStatus != id) || id == kScanTake) return nullptr;
  if (id != kScanAny) return Found(Match(*scanner, id));
  ScanToken* token = ScanFirstSymbol();
  return Found(token ? token : EndToken());
}

ScanToken* ScanMatch(int32_t id) {
  if (!CurrentScanner || ScanStatus == kScanEnd) return nullptr;
  ScanToken* token = Match(*CurrentScanner, id);
  ScanStatus = 0;
  return Found(token);
}

ScanToken* ScanRun(int32_t id) {
  Scanner* scanner = CurrentScanner;
  if (!scanner) return nullptr;
  if (id == kScanAny) ScanGet(kScanAny);
  const char* start = scanner->pPosition;
  if (ScanStatus != id) {
    ScanGet(id);
    Collect(scanner, start, ScanPending ? scanner->pPosition - ScanPending->nLength : start);
    return ScanPending;
  }
  if (ScanStatus == kScanEnd || !ScanPending) return nullptr;
  if (ScanStatus == kScanLineEnd) {
    scanner->pLine = start;
    ++scanner->nLine;
  }
  ScanToken* kept = ScanPending;
  do {
    ScanAdvance(ScanPending->nLength);
  } while (ScanMatch(id));
  Collect(scanner, start, scanner->pPosition);
  ScanStatus = id;
  return ScanPending = kept;
}

ScanToken* ScanSkipTo(int32_t id) {
  Scanner* scanner = CurrentScanner;
  if (!scanner) return nullptr;
  while (ScanStatus != kScanEnd && !ScanGet(id)) {
    ScanGet(kScanSkip);
    SkipHopeless(id);
  }
  if (ScanStatus == kScanLineEnd) MarkColumn(scanner);
  return ScanPending;
}

ScanToken* ScanFirstOf(int32_t id, ...) {
  uint32_t flags;
  va_list ids;
  va_start(ids, id);
  int32_t last = id;
  while (!EndsList(last)) last = va_arg(ids, int32_t);
  va_end(ids);
  flags = static_cast<uint32_t>(last);
  va_start(ids, id);
  ScanToken* token = FirstOf(flags, [&](ScanToken* (*get)(int32_t)) -> ScanToken* {
    va_list rest;
    va_copy(rest, ids);
    ScanToken* found = nullptr;
    for (int32_t at = id; !found && !EndsList(at); at = va_arg(rest, int32_t)) found = get(at);
    va_end(rest);
    return found;
  });
  va_end(ids);
  return token;
}

ScanToken* ScanFirstOfList(int32_t* ids) {
  int32_t* last = ids;
  while (!EndsList(*last)) ++last;
  auto flags = static_cast<uint32_t>(*last);
  *last = 0;
  return FirstOf(flags, [&](ScanToken* (*get)(int32_t)) -> ScanToken* {
    for (const int32_t* at = ids; at != last; ++at)
      if (ScanToken* found = get(*at)) return found;
    return nullptr;
  });
}

const char* ScanFind(int32_t id) {
  Scanner* scanner = CurrentScanner;
  if (!scanner) return nullptr;
  const char* position = scanner->pPosition;
  ScanToken* pending = ScanPending;
  ScanToken found = {};
  if (pending) ScanAdvance(pending->nLength);
  const char* start = nullptr;
  while (ScanStatus != kScanEnd && !start) {
    ScanPending = &found;
    if (Match(*scanner, id)) {
      start = scanner->pPosition;
    } else {
      ScanAdvance(1);
      SkipHopeless(id);
    }
  }
  if (id == kScanLineEnd) MarkColumn(scanner);
  scanner->pPosition = position;
  ScanPending = pending;
  return start;
}

char* ScanSetValue(const char* text, uint32_t length) {
  Scanner* scanner = CurrentScanner;
  if (!scanner) return nullptr;
  if (length == 0) {
    scanner->nValue = 0;
  } else if (text) {
    scanner->nValue = static_cast<uint32_t>(strlen(text));
  }
  return MemBufSet(&scanner->mbValue, text, length);
}

char* ScanAddValue(const char* text, uint32_t length) {
  Scanner* scanner = CurrentScanner;
  if (!scanner) return nullptr;
  return MemBufAdd(&scanner->mbValue, text, length) ? scanner->mbValue.pData : nullptr;
}

}  // namespace quern
