#include "quern/cfmt/structure.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "quern/ccsl/control.h"
#include "quern/cerr.h"
#include "quern/cmem/buffer.h"

namespace quern {
namespace {

constexpr uint32_t kTypeColumn = 4;
constexpr uint32_t kNameColumn = 11;
constexpr uint32_t kValueColumn = 30;
constexpr uint32_t kCommentColumn = 50;
constexpr uint32_t kIndent = 8;  // of names on lines of their own
constexpr char kNewLine[] = "\n        ";

constexpr struct {
  uint32_t flag;
  const char* word;
} kTypes[] = {{FIELD_UNSIGNED, "u"}, {FIELD_INT, "int"},     {FIELD_LONG, "long"},
              {FIELD_CHAR, "char"},  {FIELD_SHORT, "short"}, {FIELD_POINTER, "*"}};

bool HasType(uint32_t flags) {
  return std::any_of(std::begin(kTypes), std::end(kTypes),
                     [flags](const auto& type) { return flags & type.flag; });
}

// A text that grows; what no memory is left for is missing from it.
struct Text {
  Text() = default;
  ~Text() { MemBufFree(&buf); }
  Text(const Text&) = delete;
  Text& operator=(const Text&) = delete;

  uint32_t Length() const { return buf.nSize; }
  void Add(const char* text) { MemBufAdd(&buf, text, static_cast<uint32_t>(strlen(text))); }
  void PadTo(uint32_t column) {
    while (Length() < column && MemBufAdd(&buf, " ", 1)) {
    }
  }
  void Cut(uint32_t length) {
    if (buf.pData) MemBufSet(&buf, nullptr, std::min(length, buf.nSize));
  }
  void Print() const {
    if (buf.nSize != 0) fwrite(buf.pData, 1, buf.nSize, stdout);
  }

  MemBuf buf = {256, 0, 0, nullptr};
};

// Where fields lie. A field begins at `offset`, where all members of its group are read.
struct Layout {
  uint32_t offset = 0;
  uint32_t position = 0;  // in the group
  uint32_t lastSize = 0;

  void Begin(uint32_t flags) {
    if (flags & (FIELD_MEMBER | FIELD_OVERLAY)) return;
    offset += position + lastSize;
    position = 0;
    lastSize = 0;
  }
  void End(uint32_t flags, uint32_t size) {
    if (flags & FIELD_MEMBER) {
      position += lastSize;
      lastSize = size;
    } else {
      lastSize = flags & FIELD_OVERLAY ? std::max(lastSize, size) : size;
    }
  }
};

template <typename T>
T Read(const char* at) {
  T value;
  memcpy(&value, at, sizeof value);
  return value;
}

// Appends the value of a field to the line and puts its low half into `*value`, which stays where
// there is none. Returns how many bytes the field takes.
uint32_t ShowValue(const char* at, uint32_t flags, Text* line, uint32_t* value) {
  char text[32];
  uint32_t size = flags & FIELD_SIZE;
  switch (size) {
    case 1:
      *value = Read<uint8_t>(at);
      snprintf(text, sizeof text, "= 0x%02" PRIx32, *value);
      break;
    case 2:
      *value = Read<uint16_t>(at);
      snprintf(text, sizeof text, "= 0x%04" PRIx32, *value);
      break;
    case 4:
      *value = Read<uint32_t>(at);
      snprintf(text, sizeof text, "= 0x%08" PRIx32, *value);
      break;
    case 8:
      *value = Read<uint32_t>(at);
      snprintf(text, sizeof text, "= 0x%08" PRIx32 "%08" PRIx32, *value, Read<uint32_t>(at + 4));
      break;
    default:
      return size == 3 ? size : 0;
  }
  line->Add(text);
  return size;
}

// The names behind a field, and the columns that they take.
struct Names {
  Text text;
  uint32_t column;
  uint32_t width;        // of the console; 0: no limit
  uint32_t run = 0;      // names since the last line
  bool wrapped = false;  // a name was left out, and lines of their own begin

  void Add(const char* name, const char* separator) {
    auto length = static_cast<uint32_t>(strlen(name));
    uint32_t before = text.Length();
    if (++run > 1) text.Add(separator);
    if (width != 0 && column + length + 1 > width) {
      if (!wrapped) {
        wrapped = true;
        text.Cut(before);
        --run;
        column = before + kIndent;
        return;
      }
      fputs(kNewLine, stdout);
      text.Print();
      text.Cut(0);
      column = kIndent;
      run = 0;
    }
    text.Add(name);
    column += length;
  }

  // `rest` are the bits that have no name.
  void Print(uint32_t rest) {
    if (run == 0 && !wrapped) {
      fputc('\n', stdout);
      return;
    }
    if (run != 0) fputs(wrapped ? kNewLine : " ", stdout);
    if (rest != 0) {
      char bits[16];
      snprintf(bits, sizeof bits, " [%" PRIx32 "]", rest);
      text.Add(bits);
    }
    text.Print();
    fputc('\n', stdout);
  }
};

// Prints the names of a value, from the rows that begin at `row`. Returns the row behind them.
const FieldDesc* ShowNames(const FieldDesc* row, uint32_t value, Names* names) {
  for (; row->fFlags & (FIELD_CONSTANT | FIELD_BIT); ++row) {
    if (!row->pszName) continue;
    if (row->fFlags & FIELD_CONSTANT) {
      uint32_t mask = row->nMask != 0 ? row->nMask : ~0u;
      if ((value & mask) != row->nValue) continue;
      value &= ~mask;
      names->Add(row->pszName, " ");
    } else if (value & row->nValue) {
      value &= ~row->nValue;
      names->Add(row->pszName, "|");
    }
  }
  names->Print(value);
  return row;
}

}  // namespace

uint32_t FmtStruct(const FieldDesc* table, const void* data) {
  uintptr_t width = 0;
  if (table && data) CslGet(CSL_WINDOW_WIDTH, &width, nullptr);
  return FmtStructWithin(table, data, static_cast<uint32_t>(width));
}

uint32_t FmtStructWithin(const FieldDesc* table, const void* data, uint32_t width) {
  if (!table || !data) {
    ErrLast = 1;
    return 0;
  }
  const char* title = FmtStructFind(table, 0, FIELD_STRUCT)->pszName;
  printf("\nstruct %s:\n", title ? title : "(null)");
  Layout layout;
  uint32_t value = 0;
  uint32_t column = 0;
  for (const FieldDesc* row = table; row->pszName;) {
    const uint32_t flags = row->fFlags;
    layout.Begin(flags);
    if (!HasType(flags)) {
      ++row;
      continue;
    }
    Text line;
    if (flags & (FIELD_MEMBER | FIELD_OVERLAY)) {
      char position[16];
      snprintf(position, sizeof position, "%d    ", static_cast<int32_t>(layout.position));
      line.Add(position);
      line.Cut(kTypeColumn);
    }
    line.PadTo(kTypeColumn);
    for (const auto& type : kTypes)
      if (flags & type.flag) line.Add(type.word);
    line.PadTo(kNameColumn);
    line.Add(row->pszName);
    line.PadTo(kValueColumn);
    uint32_t size = ShowValue(static_cast<const char*>(data) + layout.offset, flags, &line, &value);
    layout.End(flags, size);
    if (row->pszComment) {
      line.PadTo(kCommentColumn);
      line.Add("// ");
      line.Add(row->pszComment);
    }
    line.Print();
    Names names;
    names.column = line.Length();
    names.width = width;
    row = ShowNames(row + 1, value, &names);
    column = names.column;
  }
  return column;
}

const FieldDesc* FmtStructFind(const FieldDesc* table, uint32_t key, uint32_t flags) {
  const FieldDesc* row = table;
  while (row && row->pszName) {
    if ((key != 0 && row->nKey == key) || (flags != 0 && row->fFlags == flags)) break;
    ++row;
  }
  return row;
}

}  // namespace quern
