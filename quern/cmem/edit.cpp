#include "quern/cmem/edit.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "quern/cerr.h"
#include "quern/cmem/search.h"
#include "quern/cobj.h"

namespace quern {

MemObject* MemCurrent;

namespace {

constexpr char kModule[] = "cmem";

constexpr uint32_t kEditGranule = 1024;

bool IsWithin(const char* pos, uint32_t size, const char* block, uint32_t length) {
  uintptr_t offset = reinterpret_cast<uintptr_t>(pos) - reinterpret_cast<uintptr_t>(block);
  return offset <= length && size <= length - offset;
}

bool Overlap(const char* a, uint32_t aLength, const char* b, uint32_t bLength) {
  auto from = reinterpret_cast<uintptr_t>(a), to = reinterpret_cast<uintptr_t>(b);
  return aLength != 0 && bLength != 0 && (from < to ? to - from < aLength : from - to < bLength);
}

// The noted edits.
struct Notes {
  const MemEdit* begin;
  const MemEdit* end;
};

Notes NotesOf(const MemObject* object) {
  auto* edits = reinterpret_cast<const MemEdit*>(object->mbEdits.pData);
  return {edits, edits + object->mbEdits.nSize / sizeof(MemEdit)};
}

uint32_t Note(char* block, uint32_t length, const MemEdit& edit) {
  MemObject* object = MemCurrent;
  if (!IsWithin(edit.pOld, edit.nOld, block, length)) return ErrLast = 2, 0;
  if (object->pBlock && (object->pBlock != block || object->nBlock != length))
    return ErrLast = 3, 0;
  if (!MemBufAdd(&object->mbEdits, &edit, sizeof edit)) return ErrRaise(kModule, 231, 4), 0;
  object->pBlock = block;
  object->nBlock = length;
  object->nDelta =
      static_cast<int32_t>(static_cast<uint32_t>(object->nDelta) + edit.nNew - edit.nOld);
  return 0;
}

// Whether the edits ascend without overlaps and none takes its bytes from the block that changes:
// then the bytes between them can be moved where they stand.
bool FitInPlace(Notes notes, const char* block, uint32_t length) {
  const char* reached = block;
  for (const MemEdit* edit = notes.begin; edit < notes.end; ++edit) {
    if (edit->pOld < reached) return false;
    if (edit->pNew && Overlap(edit->pNew, edit->nNew, block, length)) return false;
    reached = edit->pOld + edit->nOld;
  }
  return true;
}

// Moves the bytes behind an edit, up to the next one, to where they belong.
void MoveBehind(const MemEdit* edit, Notes notes, const char* blockEnd, int64_t shift) {
  char* from = edit->pOld + edit->nOld;
  const char* to = edit + 1 < notes.end ? edit[1].pOld : blockEnd;
  memmove(from + shift, from, static_cast<size_t>(to - from));
}

// The bytes between edits keep their order, so a stretch that moves to the right never reaches one
// that does not: only among neighbours that all move to the right must the last one go first.
void ApplyInPlace(Notes notes, char* block, uint32_t length) {
  const char* end = block + length;
  int64_t shift = 0;  // of the bytes behind the edit
  for (const MemEdit* edit = notes.begin; edit < notes.end;) {
    shift += static_cast<int64_t>(edit->nNew) - edit->nOld;
    if (shift <= 0) {
      if (shift != 0) MoveBehind(edit, notes, end, shift);
      ++edit;
      continue;
    }
    const MemEdit* last = edit;
    int64_t lastShift = shift;
    for (const MemEdit* next = edit + 1; next < notes.end; ++next) {
      int64_t nextShift = lastShift + static_cast<int64_t>(next->nNew) - next->nOld;
      if (nextShift <= 0) break;
      last = next;
      lastShift = nextShift;
    }
    const MemEdit* behind = last + 1;
    for (shift = lastShift;; --last) {
      MoveBehind(last, notes, end, shift);
      if (last == edit) break;
      shift -= static_cast<int64_t>(last->nNew) - last->nOld;
    }
    shift = lastShift;
    edit = behind;
  }
  shift = 0;
  for (const MemEdit* edit = notes.begin; edit < notes.end; ++edit) {
    if (edit->pNew) memcpy(edit->pOld + shift, edit->pNew, edit->nNew);
    shift += static_cast<int64_t>(edit->nNew) - edit->nOld;
  }
}

// Builds the edited text of `source`, a copy of the noted block or the block itself, at `out`.
void ApplyInto(Notes notes, const char* noted, const char* source, uint32_t sourceLength, char* out,
               uint32_t capacity) {
  uint64_t read = 0;
  auto put = [&](const char* bytes, uint64_t count) {
    count = std::min<uint64_t>(count, capacity);
    if (bytes) memmove(out, bytes, count);
    out += count;
    capacity -= static_cast<uint32_t>(count);
  };
  for (const MemEdit* edit = notes.begin; edit < notes.end; ++edit) {
    uint64_t at = static_cast<uint64_t>(edit->pOld - noted);
    if (at > read) {
      put(source + read, at - read);
      read = at;
    }
    put(edit->pNew, edit->nNew);
    read = std::min<uint64_t>(read + edit->nOld, sourceLength);
  }
  put(source + read, sourceLength - read);
}

uint32_t Apply(char* block, uint32_t length) {
  MemObject* object = MemCurrent;
  auto* noted = static_cast<char*>(object->pBlock);
  if (!noted) return ErrLast = 5, 0;
  if (length < object->nBlock + static_cast<uint32_t>(object->nDelta)) return ErrLast = 6, 0;
  Notes notes = NotesOf(object);
  // The sum in the object wraps, and MemBufReplace writes over it.
  int64_t size = object->nBlock;
  for (const MemEdit* edit = notes.begin; edit < notes.end; ++edit)
    size += static_cast<int64_t>(edit->nNew) - edit->nOld;
  if (size > length) return ErrLast = 6, 0;
  if (block == noted && FitInPlace(notes, block, std::max(length, object->nBlock))) {
    ApplyInPlace(notes, block, object->nBlock);
  } else {
    char* copy = nullptr;
    if (Overlap(block, length, noted, object->nBlock)) {
      copy = static_cast<char*>(malloc(object->nBlock));
      if (!copy) return ErrRaise(kModule, 250, 7), 0;
      memcpy(copy, noted, object->nBlock);
    }
    ApplyInto(notes, noted, copy ? copy : noted, object->nBlock, block, length);
    free(copy);
  }
  uint32_t delta = static_cast<uint32_t>(object->nDelta);
  MemBufFree(&object->mbEdits);
  object->pBlock = nullptr;
  object->nBlock = 0;
  object->nDelta = 0;
  return delta;
}

}  // namespace

MemObject* MemAttach(void* object) {
  auto* made =
      static_cast<MemObject*>(ClsAttach(kMemTag, object, kMemClass, sizeof(MemObject), MemClass));
  if (!made) return ErrRaise(kModule, 63, 1000), nullptr;
  made->mbEdits.nAlign = kEditGranule;
  return MemCurrent = made;
}

uint32_t MemClass(uintptr_t argument) {
  if (argument == kCollectRequest) return ClsGarbage(kMemTag);
  auto* object = reinterpret_cast<MemObject*>(argument);
  if (object && !ClsLinked(kMemTag, kMemClass, object)) return 0;  // it was released before
  if (object) MemCurrent = object;
  if (!MemCurrent) return 0;
  MemBufFree(&MemCurrent->mbEdits);
  MemCurrent->pBlock = nullptr;
  ClsDetach(kMemTag, &MemCurrent);
  return 0;
}

uint32_t MemReplace(void* block, uint32_t length, void* pos, uint32_t oldLength,
                    const void* newBytes, uint32_t newLength, uint32_t flags) {
  auto* start = static_cast<char*>(block);
  auto* at = static_cast<char*>(pos);
  if (!block) return ErrRaise(kModule, 217, 1), 0;
  if (flags == 0) {
    if (!IsWithin(at, oldLength, start, length)) return ErrRaise(kModule, 220, 2), 0;
    size_t behind = length - static_cast<size_t>(at - start) - oldLength;
    if (newLength != oldLength) memmove(at + newLength, at + oldLength, behind);
    if (newBytes) memmove(at, newBytes, newLength);
    return newLength - oldLength;
  }
  if (!MemCurrent) {
    ErrLast = 0;
    MemAttach(nullptr);
    if (ErrLast != 0) return static_cast<uint32_t>(ErrRaise(kModule, 225, 1000));
    MemCurrent->header.flags |= INST_IMPLICIT;
  }
  if (flags & MEM_RECORD) {
    return Note(start, length,
                {at, oldLength, 0, static_cast<const char*>(newBytes), newLength, 0});
  }
  if (flags & MEM_APPLY) return Apply(start, length);
  return ErrRaise(kModule, 272, 9), 0;
}

char* MemBufReplace(MemBuf* buf, const void* pattern, uint32_t patternLength,
                    const void* replacement, uint32_t replacementLength, uint32_t flags) {
  if (!buf) return ErrRaise(kModule, 501, 1), nullptr;
  if (!pattern) {
    ErrLast = 2;
    return nullptr;
  }
  const char* data = buf->pData;
  uint32_t oldSize = buf->nSize;
  while (MemFind(data, oldSize, pattern, patternLength, flags)) {
    asm volatile("" ::: "memory");  // Compat: endless; barrier: the optimiser must keep this loop
  }
  if (replacement && replacementLength != 0 &&
      !MemBufSplice(buf, nullptr, patternLength, replacement, replacementLength))
    return ErrRaise(kModule, 511, 3), nullptr;
  if (MemCurrent) {
    MemCurrent->nReplaced = 1;
    MemCurrent->nDelta = static_cast<int32_t>(buf->nSize - oldSize);
  }
  return buf->pData;
}

}  // namespace quern
