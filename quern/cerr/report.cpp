// Reading the stack back in words: the texts of its entries, and the report.

#include <cctype>
#include <cstdio>
#include <cstring>

#include "platform/win32.h"
#include "quern/ccsl/width.h"
#include "quern/cerr.h"
#include "quern/cerr/texts.h"

namespace quern {

char ReportBuffer[kReportBuffer];

namespace {

constexpr char kModule[] = "cerr";

constexpr size_t kTrail = 256;  // bytes, more than ErrInfo ever writes
constexpr int kLongestModule = 255;
constexpr size_t kHeader = kTrail + kLongestModule + 32;

// The words of an entry: a text that lives elsewhere, and what is put behind it.
struct Words {
  Words() = default;
  ~Words() { LocalFree(message); }
  Words(const Words&) = delete;
  Words& operator=(const Words&) = delete;

  const char* text = "";
  size_t length = 0;
  char behind[48] = "";
  char* message = nullptr;  // the system's block
};

// Cuts a message of the system, in place, to its first sentence without the period, on one line.
// Returns its length.
size_t FirstSentence(char* message) {
  char* out = message;
  for (const char* in = message; *in; ++in) {
    bool lineEnd = in[0] == '\r' && in[1] == '\n';
    if (lineEnd) ++in;
    *out++ = lineEnd ? ' ' : *in;
    if (out - message >= 2 && out[-1] == ' ' && out[-2] == '.') {
      out -= 2;
      break;
    }
  }
  return static_cast<size_t>(out - message);
}

void TakeText(const ErrorEntry& entry, Words* words) {
  const char* text = reinterpret_cast<const char*>(entry.value);
  if (IsBadStringPtrA(text, kReadableText)) {  // it is gone since it was pushed
    snprintf(words->behind, sizeof words->behind, MessageOf(MessageTable, 9).text,
             static_cast<uint32_t>(entry.value));
    return;
  }
  words->text = text;
  words->length = strlen(text);
}

// False after raising 1 when the system has no message for the value.
bool TakeSystemText(const ErrorEntry& entry, Words* words) {
  uint32_t value = static_cast<uint32_t>(entry.value);
  constexpr DWORD kHow = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;
  char* where = reinterpret_cast<char*>(&words->message);
  if (FormatMessageA(kHow, nullptr, value, 0, where, 0, nullptr) == 0) {
    ErrRaiseText(kModule, 341, 1, 2, value);
    return false;
  }
  words->text = words->message;
  words->length = FirstSentence(words->message);
  snprintf(words->behind, sizeof words->behind, " (%02d)", static_cast<int>(value));
  return true;
}

// The entry that was looked at last; a walk goes on below it. -1 when none is under way.
int32_t cursor = -1;

// Makes the entry with an index from the top the next one to look at; a negative index goes on with
// the walk. False when there is no such entry.
bool Seek(int32_t index) {
  if (!ErrCurrent) return false;
  int32_t count = static_cast<int32_t>(ErrCurrent->nCount);
  if (index >= count) return false;
  if (index >= 0) cursor = count - index;
  return true;
}

// The next entry downward that is not hidden; null, and the end of the walk, when there is none.
const ErrorEntry* NextEntry() {
  int32_t count = static_cast<int32_t>(ErrCurrent->nCount);
  if (cursor < 0 || cursor > count) cursor = count;
  while (cursor > 0) {
    const ErrorEntry* entry = &ErrCurrent->entries[--cursor];
    if (!(entry->flags & ERR_SKIP)) return entry;
  }
  cursor = -1;
  return nullptr;
}

// The next words as ErrGetText finds them: 1, or its results 0 and -1. Nothing of the walk is kept
// here: a raise on the way may report in turn, with the walk that is under way, and clear the
// stack.
int32_t NextWords(int32_t index, Words* words) {
  if (!Seek(index)) return 0;
  while (const ErrorEntry* entry = NextEntry()) {
    if (entry->flags & ERR_TEXT) return TakeText(*entry, words), 1;
    if (entry->flags & ERR_SYSVALUE) return TakeSystemText(*entry, words);
    if (index >= 0) return -1;
  }
  return 0;
}

int32_t CountTexts(int32_t index) {
  if (!Seek(index)) return 0;
  int32_t seen = 0;
  while (const ErrorEntry* entry = NextEntry()) {
    if (entry->flags & (ERR_TEXT | ERR_SYSVALUE)) {
      ++seen;
    } else if (index >= 0) {
      return -1;
    }
    if (index >= 0) break;
  }
  return seen;
}

// Where a report goes: to a handle, or into a buffer, where it is cut and always terminated.
struct Output {
  HANDLE handle;  // null: the buffer
  char* at;
  size_t capacity;  // bytes that are left there, one of them for the terminator
  uint32_t width;   // columns of a line, for a handle

  void Put(const char* text, size_t length) {
    if (length == 0) return;
    if (handle) {
      DWORD written;
      WriteFile(handle, text, static_cast<DWORD>(length), &written, nullptr);
      return;
    }
    if (length >= capacity) length = capacity - 1;
    memcpy(at, text, length);
    at += length;
    *at = '\0';
    capacity -= length;
  }
};

const char* Label() {
  uint32_t flags = ErrCurrent->entries[ErrCurrent->nCount - 1].flags;
  if (flags & ERR_INFO) return "Info ";
  if (flags & ERR_TRACE) return "Trace";
  if (flags & ERR_WARN) return "Warn.";
  return "Error";
}

// "Error 19 (CFILE187):". Returns its length.
size_t Header(char* header, const char* trail) {
  const char* file = ErrFile ? ErrFile : "";
  const char* slash = strrchr(file, '\\');
  if (slash) file = slash + 1;
  char module[kLongestModule + 1] = "";
  for (int i = 0; i < kLongestModule && file[i] && file[i] != '.'; ++i)
    module[i] = static_cast<char>(toupper(static_cast<unsigned char>(file[i])));
  return static_cast<size_t>(
      snprintf(header, kHeader, "%s %s (%s%d):", Label(), trail, module, ErrLine));
}

void Write(Output out, uint32_t mode) {
  bool full = (mode & ERR_REPORT_FULL) != 0;
  int32_t index = full ? -1 : static_cast<int32_t>(mode & 0xFFFF);
  char trail[kTrail];
  if (!ErrInfo(trail, index)) return;
  char header[kHeader];
  size_t length = Header(header, trail);
  out.Put(header, length);
  for (bool first = true; first || full; first = false) {
    Words words;
    if (NextWords(index, &words) <= 0) break;
    size_t behind = strlen(words.behind);
    if (out.handle && (!first || length + words.length + behind + 1 > out.width))
      out.Put("\n  ", 3);
    out.Put(" ", 1);
    out.Put(words.text, words.length);
    out.Put(words.behind, behind);
  }
  if (out.handle) out.Put("\n", 1);
  if (full) ErrClear();
}

}  // namespace

intptr_t ErrGetText(char* buffer, int32_t index) {
  if (!buffer) return CountTexts(index);
  Words words;
  int32_t found = NextWords(index, &words);
  if (found <= 0) return found;
  memcpy(buffer, words.text, words.length);
  strcpy(buffer + words.length, words.behind);
  return reinterpret_cast<intptr_t>(buffer);
}

void ErrCompose(char* buffer, size_t capacity, uint32_t mode) {
  Write({nullptr, buffer, capacity, 0}, mode);
}

int32_t ErrReport(void* target, uint32_t mode) {
  if (mode & ERR_REPORT_COMPOSE) {
    if (target) ErrCompose(static_cast<char*>(target), SIZE_MAX, mode);
    return 0;
  }
  if (!ErrCurrent) return 0;
  uint32_t width = ConsoleWidth();
  if (!target && width != 0) {
    target = GetStdHandle(STD_ERROR_HANDLE);
    if (target == INVALID_HANDLE_VALUE) target = nullptr;
  }
  Write({target, ReportBuffer, kReportBuffer, width}, mode);
  return 0;
}

}  // namespace quern
