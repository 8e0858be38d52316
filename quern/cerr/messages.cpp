// The built-in messages, and the texts that are made of them.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cerr/texts.h"

namespace quern {

// The code-0 row must be last. Texts are fixed, typos included.
const MessageRow MessageTable[] = {
    {1, "   Fatal error: No error handler is defined", 0x0000},
    {4, "   Fatal error: Stack for errors exceeded limits", 0x0000},
    {5, "Buffer range overflow", 0x0000},
    {6, "Error-message-buffer overflow", 0x1000},
    {2, "Windows returned no system message for this code 0x%08X", 0x1000},
    {7, "Holy shit, this error should never happen (internal)", 0x0800},
    {8, "Garbage collection removed %d instance(s) of class %s", 0x5000},
    {3, "Out of memory", 0x5000},
    {9, "Reference by illegal pointer 0x%08X", 0x5000},
    {12, "Allocation error on memory object", 0x5000},
    {13, "Missing memory object (internal)", 0x5000},
    {10, "Object (%s) allocation exceeds maximum", 0x5000},
    {11, "Object (%s) invalid or unknown id", 0x5000},
    {18, "Missing argument %d (type=%s) in option '%s'", 0x0800},
    {23, "Number of arguments %d exceeds size of stack", 0x0800},
    {14, "Unknown sequence '%s' in option %d", 0x5000},
    {20, "Unknown spcifier '%s' in option configuration %s", 0x5000},
    {15, "Expected '%c' in parsing sequence %s", 0x5000},
    {19, "Unknown delimiter '%.6s..' in option '%s'", 0x5000},
    {16, "Numeric value of %s in %s is too big", 0x0800},
    {17, "Number of value %s in %s exceeds limits", 0x0800},
    {21, "Parser internal failure: missing interface function", 0x0800},
    {22, "Parser internal failure: undefined symbol reference", 0x0800},
    {24, "Could not create temporary file", 0x5000},
    {25, "File could not be loaded into memory", 0x8000},
    {26, "System failed to remap file in memory", 0x0800},
    {27, "Failed to remap file at specified location", 0x8000},
    {28, "File could'nt be removed from memory", 0x5000},
    {29, "Illegal file-open-mode specified", 0x8000},
    {30, "File is growing beyond it's limit (>%dkB)", 0x8000},
    {31, "Failed to open %s", 0x8000},
    {32, "Unknown command", 0x8000},
    {33, "Currently unsupported value type", 0x8000},
    {34, "Scanner %d. symbol '%s' has improper definition", 0x8000},
    {36,
     "Scanner %d. symbol '%s' is not writable - you MUST convert definition to uppercase or remove "
     "name conflict with string constant",
     0x8000},
    {35, "Symbol '%d' is used but was never configured", 0x8000},
    {37, "File is not an executable", 0x8000},
    {38, "Not a PE file/module", 0x8000},
    {0, "Missing or undefined error message", 0x0800},
};

namespace {

constexpr char kModule[] = "cerr";

constexpr uintptr_t kFirstUserCode = 39;  // codes below are looked up in the built-in table
constexpr int kLongestText = 512;         // of a formatted message, its terminator included

// A block that texts still point into, after a stack's message buffer moved to a larger one.
struct Retired {
  const ErrorStack* owner;
  char* block;
  Retired* next;
};
Retired* retired;

// Moves the message buffer to a larger block and retires the old one. False after raising what the
// buffer's own growth raises.
bool Enlarge(MemBuf* buf, uint32_t size) {
  auto* note = static_cast<Retired*>(malloc(sizeof(Retired)));
  char* larger = note ? static_cast<char*>(malloc(size_t{size} * 2)) : nullptr;
  if (!larger) {
    free(note);
    ErrRaise("cmem", 439, 2);
    ErrRaise("cmem", 460, 2);
    return false;
  }
  memcpy(larger, buf->pData, buf->nSize);
  *note = {ErrCurrent, buf->pData, retired};
  retired = note;
  buf->pData = larger;
  return true;
}

// Appends a text to the message buffer. Earlier texts stay where they are. Null after a raise.
char* Keep(const char* text, uint32_t length) {
  MemBuf* buf = &ErrCurrent->bufText;
  uint32_t size = MemAlign(buf->nSize + length + kMemTerminator, buf->nAlign);
  if (buf->pData && MemBufMoves(buf, size) && !Enlarge(buf, size)) return nullptr;
  return MemBufAdd(buf, text, length);
}

// vsnprintf into a text of kLongestText bytes, of the names (%s) of a built-in message no more than
// `most` bytes each.
int FormatNames(char* text, const char* message, int most, va_list arguments) {
  char format[kLongestText];  // holds any built-in message, with a precision at each name
  char* out = format;
  for (const char* in = message; *in; ++in) {
    *out++ = *in;
    if (in[0] == '%' && in[1] == 's') out += sprintf(out, ".%d", most);
  }
  *out = '\0';
  va_list again;
  va_copy(again, arguments);
  int length = vsnprintf(text, kLongestText, format, again);
  va_end(again);
  return length;
}

// Formats a built-in message whose names are too long for it: with as much of them as fits. Returns
// the length with the terminator.
int FormatCut(char* text, const char* message, va_list arguments) {
  int most = 0;
  for (int more = kLongestText / 2; more > 0; more /= 2)
    if (FormatNames(text, message, most + more, arguments) + 1 < kLongestText) most += more;
  return FormatNames(text, message, most, arguments) + 1;
}

[[noreturn]] void Overflow(const char* format, va_list arguments, int length) {
  // The arguments may be texts of the buffer that the report is about to clear.
  auto* text = static_cast<char*>(malloc(static_cast<size_t>(length)));
  if (text) vsnprintf(text, static_cast<size_t>(length), format, arguments);
  ErrRaiseText(kModule, 234, ERR_LIBRARY | 1, 6);
  if (text) printf("%.*s", length, text);
  free(text);
  ErrExit(ErrLast);
}

const char* FormatList(uintptr_t codeOrFormat, va_list arguments) {
  bool builtIn = !ErrCurrent;
  if (!ErrCurrent) ErrRequireStack();
  builtIn |= (ErrCurrent->nPending & ERR_LIBRARY) != 0;
  const MessageRow* table = nullptr;
  if (builtIn) {
    if (codeOrFormat < kFirstUserCode) table = MessageTable;
  } else if (codeOrFormat <= ErrCurrent->nHighest) {
    table = ErrCurrent->pTable;
  }
  const char* format = reinterpret_cast<const char*>(codeOrFormat);
  if (table) {
    const MessageRow& row = MessageOf(table, codeOrFormat);
    format = row.text;
    ErrCurrent->nPending |= row.flags;
  }
  if (table != MessageTable && IsBadStringPtrA(format, kReadableText)) return nullptr;
  if (!strchr(format, '%')) return format;
  va_list again;
  va_copy(again, arguments);
  char text[kLongestText];
  int length = vsnprintf(text, sizeof text, format, arguments) + 1;
  if (length >= kLongestText && table == MessageTable) {
    length = FormatCut(text, format, again);
  } else if (length >= kLongestText) {
    Overflow(format, again, length);
  }
  va_end(again);
  if (length <= 0) return format;  // the runtime makes no text of it
  return Keep(text, static_cast<uint32_t>(length));
}

}  // namespace

const MessageRow& MessageOf(const MessageRow* table, uintptr_t code) {
  while (table->code != code && table->code != 0) ++table;
  return *table;
}

int32_t ErrPushText(uint32_t flags, uintptr_t codeOrText) {
  ErrRequireStack();
  uintptr_t text = codeOrText;
  const MessageRow* table = nullptr;
  if (codeOrText <= ErrCurrent->nHighest)
    table = codeOrText >= kFirstUserCode ? ErrCurrent->pTable : MessageTable;
  if (table) {
    const MessageRow& row = MessageOf(table, codeOrText);
    flags |= row.flags;
    text = reinterpret_cast<uintptr_t>(row.text);
    if (row.code == 0 && !IsBadStringPtrA(row.text, kReadableText))
      text = reinterpret_cast<uintptr_t>(ErrFormat(text, codeOrText));
  }
  if (IsBadStringPtrA(reinterpret_cast<const char*>(text), kReadableText)) {
    const char* replaced = ErrText(9, static_cast<uint32_t>(text));
    text = reinterpret_cast<uintptr_t>(replaced ? replaced : MessageOf(MessageTable, 9).text);
  }
  return ErrPushEntry(flags | ERR_TEXT, text);
}

const char* ErrTextList(uint32_t code, va_list arguments) {
  if (!ErrCurrent) ErrRequireStack();
  ErrCurrent->nPending |= ERR_LIBRARY;
  return FormatList(code, arguments);
}

const char* ErrText(uint32_t code, ...) {
  va_list arguments;
  va_start(arguments, code);
  const char* text = ErrTextList(code, arguments);
  va_end(arguments);
  return text;
}

const char* ErrFormat(uintptr_t codeOrFormat, ...) {
  va_list arguments;
  va_start(arguments, codeOrFormat);
  const char* text = FormatList(codeOrFormat, arguments);
  va_end(arguments);
  return text;
}

void ErrFreeRetired(const ErrorStack* owner) {
  for (Retired** link = &retired; *link;) {
    Retired* note = *link;
    if (note->owner != owner) {
      link = &note->next;
      continue;
    }
    *link = note->next;
    free(note->block);
    free(note);
  }
}

}  // namespace quern
