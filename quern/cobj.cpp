#include "quern/cobj.h"

#include <cstdlib>
#include <cstring>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/csys.h"

namespace quern {

InstanceHeader* ClassLists[kClassLists];
uint32_t ClsNew;
uint32_t ClsFlags;
void (*ClsExitHook)();
InstanceHeader* ClsSavedFile;

namespace {

constexpr char kModule[] = "cobj";

bool initialised;
bool exiting;

void Initialise() {
  if (initialised) return;
  initialised = true;
  atexit([] { ClsExit(); });
  SysInit(0);
  ClsFlags = kClsReady;
}

InstanceHeader* Last(uint32_t classNumber) {
  InstanceHeader* last = ClassLists[classNumber];
  while (last && last->pNext) last = last->pNext;
  return last;
}

bool IsLinked(const InstanceHeader* instance, uint32_t classNumber) {
  const InstanceHeader* at = ClassLists[classNumber];
  while (at && at != instance) at = at->pNext;
  return at != nullptr;
}

void Unlink(InstanceHeader* instance) {
  if (instance->pNext) instance->pNext->pPrev = instance->pPrev;
  if (instance->pPrev) {
    instance->pPrev->pNext = instance->pNext;
  } else if (instance->classNumber < kClassLists && ClassLists[instance->classNumber] == instance) {
    ClassLists[instance->classNumber] = instance->pNext;
  }
}

// Whether the caller's memory can become an instance; false after raising.
bool IsUsable(void* memory, uint32_t size) {
  uint32_t firstWord;
  bool readable = !IsBadReadPtr(memory, sizeof firstWord);
  if (readable) memcpy(&firstWord, memory, sizeof firstWord);
  if (readable && firstWord != 0) return ErrRaise(kModule, 79, 4), false;
  if (!readable || IsBadWritePtr(memory, size))
    return ErrRaise(kModule, 75, ERR_LIBRARY | ERR_SYSTEM | 3), false;
  return true;
}

// Turns fresh memory, or the caller's, into zeroed memory for an instance; null after raising.
InstanceHeader* Prepare(void* memory, uint32_t size) {
  if (memory) return static_cast<InstanceHeader*>(memset(memory, 0, size));
  auto* fresh = static_cast<InstanceHeader*>(calloc(1, size));
  if (!fresh) return ErrRaise(kModule, 64, 2), nullptr;
  fresh->flags = INST_OWNED;
  return fresh;
}

// Compat: never true; no instance counts as garbage, whoever made it.
bool IsGarbage(uint32_t flags) {
  uint32_t test = flags & INST_IMPLICIT;
  test |= kClsCollecting;
  return test == 0;
}

// Releases the instances of one list, newest first, and says so.
void Collect(uint32_t classNumber, bool all) {
  int32_t removed = 0;
  int32_t garbage = 0;
  uint32_t tag = 0;
  int32_t instances = 0;
  for (const InstanceHeader* at = ClassLists[classNumber]; at; at = at->pNext) ++instances;
  InstanceHeader* at = Last(classNumber);
  while (at && removed < instances) {  // a procedure that keeps its instance is not called again
    InstanceHeader* previous = at->pPrev;
    tag = at->tag;
    if (IsGarbage(at->flags)) ++garbage;
    if (at->proc) {
      at->proc(reinterpret_cast<uintptr_t>(at));
    } else {
      ClsDetach(tag, &at);
    }
    ++removed;
    // A procedure may release other instances of its class together with its own.
    at = !previous || IsLinked(previous, classNumber) ? previous : Last(classNumber);
  }
  if (removed > 0 && garbage == 0) {
    Trace(3, "CLS garbage: removed %d instances of class '%s'\n", removed, ClsTagName(tag));
  } else if (garbage > 0) {
    Trace(2, "CLS garbage: removed %d instances of class '%s' (garbage=%d)\n", removed,
          ClsTagName(tag), garbage);
  }
  if (all && garbage != 0 && (ClsFlags & kClsArmed))
    ErrRaiseText(kModule, 168, 3, 8, garbage, ClsTagName(tag));
}

}  // namespace

void* ClsAttach(uint32_t tag, void* instance, uint32_t classNumber, uint32_t size, ClassProc proc) {
  ClsNew = 0;
  Initialise();
  if (tag == kClsInitialise) return instance;
  if (classNumber >= kClassLists) return nullptr;
  if (ClsLinked(tag, classNumber, instance)) return instance;  // need not be probed
  if (instance && !IsBadReadPtr(instance, sizeof tag) && memcmp(instance, &tag, sizeof tag) == 0)
    return instance;
  if (instance && !IsUsable(instance, size)) return nullptr;
  bool tooSmall = size < sizeof(InstanceHeader);  // nothing is allocated or zeroed then
  InstanceHeader* made = tooSmall ? nullptr : Prepare(instance, size);
  if (!made && !tooSmall) return nullptr;
  // Compat: a block that was allocated stays allocated when one of these fails.
  if (tag == 0) return ErrRaise(kModule, 80, 5), nullptr;          // NOLINT(*-unix.Malloc)
  if (classNumber == 0) return ErrRaise(kModule, 81, 6), nullptr;  // NOLINT(*-unix.Malloc)
  if (tooSmall) return nullptr;
  made->tag = tag;
  made->classNumber = classNumber;
  made->size = size;
  made->proc = proc;
  if (IsLinked(made, classNumber)) return made;
  ClsNew = 1;
  InstanceHeader* last = Last(classNumber);
  made->pPrev = last;
  (last ? last->pNext : ClassLists[classNumber]) = made;
  return made;
}

bool ClsLinked(uint32_t tag, uint32_t classNumber, const void* instance) {
  auto* header = static_cast<const InstanceHeader*>(instance);
  return header && classNumber < kClassLists && IsLinked(header, classNumber) && header->tag == tag;
}

bool ClsAlive(const void* instance) {
  auto* header = static_cast<const InstanceHeader*>(instance);
  uint32_t number = 1;
  while (number < kClassLists && !IsLinked(header, number)) ++number;
  return header && number < kClassLists;
}

int32_t ClsDetach(uint32_t tag, void* reference) {
  if (!reference) return ErrRaise(kModule, 110, 1);
  auto** variable = static_cast<InstanceHeader**>(reference);
  InstanceHeader* instance = *variable;
  if (!instance || instance->tag != tag) return ErrRaise(kModule, 111, 2);
  Unlink(instance);
  if (ClsSavedFile == instance) ClsSavedFile = nullptr;
  const char* word;
  if (instance->flags & INST_OWNED) {
    free(instance);
    word = "removed";
  } else {
    memset(static_cast<void*>(instance), 0, instance->size);
    word = "deleted";
  }
  if (!(ClsFlags & kClsCollecting))
    Trace(4, "CLS detach: %s instance of class '%s'\n", word, ClsTagName(tag));
  *variable = nullptr;
  return 0;
}

uint32_t ClsGarbage(uint32_t tag) {
  ClsFlags |= kClsCollecting;
  for (uint32_t classNumber = kClassLists - 1; classNumber > 0; --classNumber) {
    const InstanceHeader* head = ClassLists[classNumber];
    if (!head || (tag != 0 && head->tag != tag)) continue;
    Collect(classNumber, tag == 0);
    if (tag != 0) break;
  }
  ClsFlags &= ~kClsCollecting;
  return 0;
}

const char* ClsTagName(uint32_t tag) {
  static char name[8];
  char* end = name;
  for (int shift = 24; shift >= 0; shift -= 8) {
    char letter = static_cast<char>(tag >> shift);
    if (letter) *end++ = letter;
  }
  *end = '\0';
  return name;
}

uint32_t ClsExit() {
  exiting = true;
  if (ErrCurrent && ErrCurrent->nCount != 0) {
    ErrReport(nullptr, ERR_REPORT_FULL);
  } else {
    ClsFlags |= kClsArmed;
  }
  if (ClsExitHook) ClsExitHook();
  ClsGarbage(0);
  exiting = false;
  return 0;
}

bool ClsExiting() { return exiting; }

}  // namespace quern
