// The stack itself: pushing, raising, the code trail, and the ends of the process.

#include <cstdio>
#include <cstdlib>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cerr/texts.h"
#include "quern/cobj.h"

namespace quern {

int32_t ErrLast;
const char* ErrFile;
int32_t ErrLine;
ErrorStack* ErrCurrent;

namespace {

constexpr char kModule[] = "cerr";

constexpr uint32_t kCategories = 0xFF000000;    // of a code, merged into the flags of its entry
constexpr uint32_t kStaysPending = 0xE000FFFF;  // of a push, until the next raise
constexpr uint32_t kHighestBuiltIn = 39;
constexpr uint32_t kTextGranule = 128;

void Raise(uint32_t flags, int32_t value) {
  ErrorStack* stack = ErrCurrent;
  if (stack->nCount != 0) stack->entries[stack->nCount - 1].flags |= flags;
  if (flags & ERR_NEGATE) value = -value;
  if (flags & ERR_WARN) ErrReport(nullptr, ERR_REPORT_FULL);
  if (flags & ERR_TRACE) ErrReport(nullptr, ERR_REPORT_FULL);
  if (flags & ERR_FATAL) ErrExit(-value);
  stack->nPending = 0;
  stack->nLastRaised = value;
  ErrLast = value;
}

void Push(uint32_t flags, uintptr_t value) {
  ErrorStack* stack = ErrCurrent;
  stack->nPending |= flags & kStaysPending;
  stack->entries[stack->nCount++] = {flags, value};
}

void NoteSite(const char* module, int32_t line) {
  ErrFile = module;
  ErrLine = line;
}

}  // namespace

void ErrFatal(uint32_t message) {
  puts(MessageOf(MessageTable, message).text);
  ErrExit(-1);
}

void ErrRequireStack() {
  static bool creating;
  if (!ErrCurrent) {
    // The registry raises when it has no memory for the stack, and a raise needs the stack.
    if (creating) ErrFatal(1);
    creating = true;
    ErrLast = 0;
    ErrStackAttach(nullptr);
    if (ErrLast == 0) ErrCurrent->header.flags |= INST_IMPLICIT;
    creating = false;
  }
  if (ErrLast != 0) ErrFatal(1);
}

ErrorStack* ErrStackAttach(void* instance) {
  auto* stack = static_cast<ErrorStack*>(
      ClsAttach(kErrTag, instance, kErrClass, sizeof(ErrorStack), ErrClass));
  if (!stack) return ErrRaise(kModule, 56, 1000), nullptr;
  if (ClsNew) {
    stack->nHighest = kHighestBuiltIn;
    stack->bufText.nAlign = kTextGranule;
  }
  return ErrCurrent = stack;
}

ErrorStack* ErrSetTable(void* instance, const MessageRow* table) {
  if ((instance || !ErrCurrent) && !ErrStackAttach(instance))
    return ErrRaise(kModule, 73, 1), nullptr;
  ErrCurrent->pTable = table;
  ErrCurrent->nHighest = table ? 0 : kHighestBuiltIn;
  for (const MessageRow* row = table; row && row->code != 0; ++row)
    if (row->code > ErrCurrent->nHighest) ErrCurrent->nHighest = row->code;
  return ErrCurrent;
}

uint32_t ErrClass(uintptr_t argument) {
  if (argument == kCollectRequest) return ClsGarbage(kErrTag);
  auto* stack = reinterpret_cast<ErrorStack*>(argument);
  if (stack && !ClsLinked(kErrTag, kErrClass, stack)) return 0;  // it was released before
  if (stack) ErrCurrent = stack;
  if (!ErrCurrent) return 0;
  MemBufFree(&ErrCurrent->bufText);
  ErrFreeRetired(ErrCurrent);
  ClsDetach(kErrTag, &ErrCurrent);
  return 0;
}

int32_t ErrPushEntry(uint32_t flags, uintptr_t value) {
  ErrLast = 0;
  ErrRequireStack();
  if (ErrCurrent->nCount >= kErrEntries) ErrFatal(4);
  // The top byte of an address, or of a value of the system, is no category: merged, it could turn
  // a push into a raise, or the value into an address.
  if (!(flags & (ERR_TEXT | ERR_SYSVALUE))) flags |= static_cast<uint32_t>(value) & kCategories;
  flags |= ErrCurrent->nPending;
  if (!(flags & ERR_TEXT)) value &= 0xFFFF;
  if (flags & ERR_RAISED) {
    Raise(flags, static_cast<int32_t>(value));
  } else {
    Push(flags, value);
  }
  return 0;
}

int32_t ErrPush(uint32_t code) {
  if (code & ERR_SYSTEM) ErrPushEntry(ERR_SYSVALUE, GetLastError());
  return ErrPushEntry(ERR_CODE, code);
}

int32_t ErrThrow(uint32_t code) { return ErrPushEntry(ERR_RAISED, code); }

int32_t ErrRaise(const char* module, int32_t line, uint32_t code) {
  NoteSite(module, line);
  ErrPush(code);
  ErrThrow(code);
  return -ErrLast;
}

int32_t ErrRaiseText(const char* module, int32_t line, uint32_t code, uint32_t message, ...) {
  NoteSite(module, line);
  ErrPush(code);
  va_list arguments;
  va_start(arguments, message);
  const char* text = ErrTextList(message, arguments);
  va_end(arguments);
  // Without memory for the text its failure has been raised already, and a text may only follow a
  // push.
  if (text) ErrPushText(0, reinterpret_cast<uintptr_t>(text));
  ErrThrow(code);
  return -ErrLast;
}

int32_t ErrRaiseText(const char* module, int32_t line, uint32_t code, const char* text) {
  NoteSite(module, line);
  ErrPush(code);
  ErrPushText(0, reinterpret_cast<uintptr_t>(text));
  ErrThrow(code);
  return -ErrLast;
}

char* ErrInfo(char* buffer, int32_t depth) {
  if (!ErrCurrent) return nullptr;
  if (depth < 0) depth = INT32_MAX;
  int32_t level = -1;
  char* out = nullptr;
  bool hide = false;
  bool separate = false;
  for (uint32_t index = ErrCurrent->nCount; index-- > 0;) {
    const ErrorEntry& entry = ErrCurrent->entries[index];
    if (entry.flags & ERR_RAISED) {
      ++level;
      hide = false;
      separate = true;
    }
    if (entry.flags & ERR_SKIP) hide = true;
    if (hide) continue;
    if (level > depth) break;
    if (!(entry.flags & ERR_CODE) || entry.value == 0) continue;
    if (!out) {
      out = buffer;
      separate = false;
    }
    const char* format = !separate ? "%02d" : entry.flags & ERR_RAISED ? ".%02d" : ":%02d";
    out += sprintf(out, format, static_cast<int>(entry.value));
    separate = false;
  }
  return out ? buffer : nullptr;
}

int32_t ErrClear() {
  if (!ErrCurrent) return -1;
  ErrCurrent->nCount = 0;
  ErrCurrent->bufText.nSize = 0;
  ErrFreeRetired(ErrCurrent);
  SetLastError(0);
  ErrLast = 0;
  return 0;
}

void ErrExit(int32_t x) {
  static bool ending;
  if (ending || ClsExiting()) {
    fflush(nullptr);
    ExitProcess(static_cast<UINT>(-x));
  }
  ending = true;
  exit(-x);
}

}  // namespace quern
