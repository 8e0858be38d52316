#include "quern/cfmt/hex.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "quern/cerr.h"
#include "quern/cobj.h"

namespace quern {

Formatter* CurrentFormatter;
int32_t FmtLineBytes = 16;

namespace {

constexpr char kModule[] = "cfmt";

constexpr char kDigits[] = "0123456789ABCDEF?";
constexpr uint32_t kTextGranule = 64;

// The two digits of every byte.
constexpr auto kPairs = [] {
  std::array<char, 512> pairs{};
  for (unsigned byte = 0; byte < 256; ++byte) {
    pairs[2 * byte] = kDigits[byte >> 4];
    pairs[2 * byte + 1] = kDigits[byte & 15];
  }
  return pairs;
}();

// Every byte as a dump shows it.
constexpr auto kShown = [] {
  std::array<char, 256> shown{};
  for (unsigned byte = 0; byte < 256; ++byte)
    shown[byte] = byte < 0x20 || byte == 0x7F ? '.' : static_cast<char>(byte);
  return shown;
}();

char* WriteByte(char* out, uint8_t byte) {
  memcpy(out, &kPairs[2 * size_t{byte}], 2);
  return out + 2;
}

// Whole bytes, four of them at least.
char* WriteNumber(char* out, uintptr_t value) {
  int bytes = 4;
  if constexpr (sizeof value > 4) {
    while (bytes < static_cast<int>(sizeof value) && value >> 8 * bytes != 0) ++bytes;
  }
  while (bytes-- > 0) out = WriteByte(out, static_cast<uint8_t>(value >> 8 * bytes));
  return out;
}

// How many bytes make a group. The digits count down by two, so that an odd number misses zero.
uint32_t GroupBytes(uint32_t digits, uint32_t left) {
  return digits % 2 != 0 ? left : std::min(digits / 2, left);
}

// At least as many bytes as the text has.
uint64_t CapacityFor(uint32_t length, uint32_t digits, uint32_t flags) {
  bool chars = flags & FMT_CHARS;
  uint32_t step = chars ? 1 : std::max(GroupBytes(digits, length), 1u);
  uint32_t around = flags & FMT_TEXT ? digits + 2 : chars ? 0 : 1;
  return uint64_t{length} * (chars ? 1 : 2) + (uint64_t{length} / step + 1) * around;
}

char* Write(char* out, const uint8_t* in, uint32_t length, uint32_t digits, uint32_t flags) {
  const uint8_t* end = in + length;
  while (in != end) {
    auto left = static_cast<uint32_t>(end - in);
    if (flags & FMT_TEXT) {
      uint32_t count = std::min(digits, left);
      memcpy(out, in, count);
      out += count;
      *out++ = '(';
    }
    if (flags & FMT_CHARS) {
      *out++ = kShown[*in++];
    } else {
      for (uint32_t count = GroupBytes(digits, left); count > 0; --count)
        out = WriteByte(out, *in++);
    }
    if (flags & FMT_TEXT) {
      *out++ = ')';
    } else if (!(flags & FMT_CHARS) && in != end) {
      *out++ = ' ';
    }
  }
  *out = '\0';
  return out;
}

// The number that a digit stands for; -1 when it is none.
int ValueOf(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  char small = static_cast<char>(c | 0x20);
  return small >= 'a' && small <= 'f' ? small - 'a' + 10 : -1;
}

// How a number of FmtUnhex is stored: bytes in `*value`, from the least significant one.
uint32_t StoredBytes(uint32_t mode, int32_t digits, uint32_t* value) {
  int32_t bytes = 0;
  switch (mode) {
    case UNHEX_BYTES:
      if (digits == 1) *value <<= 4;
      bytes = 1;
      break;
    case UNHEX_FIT:
      bytes = (digits + 1) / 2;
      break;
    case UNHEX_WORDS:
      bytes = (digits + 3) / 4 * 2;
      break;
    case UNHEX_LONG:
      bytes = 4;
      break;
    default:
      break;
  }
  return static_cast<uint32_t>(std::max(bytes, 0));
}

// A line of a dump, behind its label: the digits of up to `width` bytes, filled up to three columns
// for each of 16, and the characters. Returns its end.
char* WriteLine(char* out, const uint8_t* in, uint32_t count) {
  constexpr uint32_t kHexColumn = 48;
  char* column = out;
  for (uint32_t i = 0; i < count; ++i) {
    out = WriteByte(out, in[i]);
    *out++ = ' ';
  }
  --out;  // no blank behind the last byte
  auto used = static_cast<uint32_t>(out - column);
  uint32_t blanks = used < kHexColumn ? kHexColumn - used + 1 : 1;
  memset(out, ' ', blanks);
  out += blanks;
  for (uint32_t i = 0; i < count; ++i) out[i] = kShown[in[i]];
  out += count;
  *out++ = '\n';
  return out;
}

bool RequireFormatter() {
  if (CurrentFormatter) return true;
  if (!FmtSelect(nullptr)) return false;
  CurrentFormatter->header.flags |= INST_IMPLICIT;
  return true;
}

}  // namespace

Formatter* FmtSelect(void* object) {
  auto* formatter =
      static_cast<Formatter*>(ClsAttach(kFmtTag, object, kFmtClass, sizeof(Formatter), FmtClass));
  if (!formatter) return ErrRaise(kModule, 30, 1000), nullptr;
  if (ClsNew != 0) formatter->mbText.nAlign = kTextGranule;
  return CurrentFormatter = formatter;
}

uint32_t FmtClass(uintptr_t argument) {
  if (argument == kCollectRequest) return ClsGarbage(kFmtTag);
  auto* object = reinterpret_cast<Formatter*>(argument);
  if (object && !ClsLinked(kFmtTag, kFmtClass, object)) return 0;  // it was released before
  if (object) CurrentFormatter = object;
  if (!CurrentFormatter) return 0;
  MemBufFree(&CurrentFormatter->mbText);
  ClsDetach(kFmtTag, &CurrentFormatter);
  return 0;
}

char FmtHexDigit(uint32_t value) { return kDigits[std::min(value, 16u)]; }

char* FmtHex(const void* data, uint32_t length, char* output, uint32_t flags) {
  if (!RequireFormatter()) return ErrRaise(kModule, 59, 1000), nullptr;
  if (!data) return ErrRaise(kModule, 62, 1), nullptr;
  uint32_t digits = flags & FMT_GROUP ? flags & FMT_GROUP : 2;
  if (length == 0xFFFFFFFF) length = static_cast<uint32_t>(strlen(static_cast<const char*>(data)));
  auto* bytes = static_cast<const uint8_t*>(data);
  MemBuf* text = &CurrentFormatter->mbText;
  if (output && !MemBufHolds(text, output)) {
    if (output == data) {
      bytes = reinterpret_cast<const uint8_t*>(MemBufSet(text, data, length));
      if (!bytes) return nullptr;
    }
    Write(output, bytes, length, digits, flags);
    return output;
  }
  MemBuf copy = {};  // of a text that this function has made
  if (MemBufHolds(text, data)) {
    bytes = reinterpret_cast<const uint8_t*>(MemBufSet(&copy, data, length));
    if (!bytes) return nullptr;
  }
  uint64_t capacity = CapacityFor(length, digits, flags);
  char* made =
      MemBufSet(text, nullptr, static_cast<uint32_t>(std::min<uint64_t>(capacity, UINT32_MAX)));
  if (made) {
    const char* end = Write(made, bytes, length, digits, flags);
    made = MemBufSet(text, nullptr, static_cast<uint32_t>(end - made));
  }
  MemBufFree(&copy);
  return made;
}

uint32_t FmtUnhex(const char* text, uint32_t length, void* output, uint32_t mode) {
  if (!text || !output) return 0;
  auto* out = static_cast<char*>(output);
  auto left = static_cast<int32_t>(length);
  const int32_t most = mode == UNHEX_BYTES ? 2 : 8;
  uint32_t count = 0;
  while (left >= 1) {
    while (*text == ' ' || *text == '.') ++text;
    uint32_t value = 0;
    int32_t digits = 0;
    while (digits < most && left-- != 0) {
      char c = *text;
      if (c == ' ' || c == '\0') break;
      ++text;
      if (int digit = ValueOf(c); digit >= 0) {
        value = value << 4 | static_cast<uint32_t>(digit);
        ++digits;
      } else if (c == 'x' || c == 'X') {
        value >>= 4;
        --digits;
      } else if (!strchr("hH.-", c)) {
        return 0;
      }
    }
    if (digits == 0) break;
    for (uint32_t bytes = StoredBytes(mode, digits, &value); bytes > 0; --bytes, value >>= 8)
      out[count++] = static_cast<char>(value);
  }
  if (count != 0) out[count] = '\0';
  return count;
}

int32_t FmtDump(const void* data, uint32_t length, uint32_t base, uint32_t flags) {
  if (flags & DUMP_HEADER) {
    const char* heading = flags & DUMP_OFFSET       ? "    Offset:"
                          : flags & DUMP_ADDRESS    ? "   Address:"
                          : flags & DUMP_FILEOFFSET ? "FileOffset:"
                                                    : "";
    fputs(heading, stdout);
    if (flags & DUMP_RULER)
      fputs("  0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F  0123456789ABCDEF\n", stdout);
  }
  if (static_cast<int32_t>(length) <= 0 || !RequireFormatter()) return 0;
  if (!data) return ErrRaise(kModule, 62, 1), 0;
  constexpr uint32_t kLongestLine = 256;
  const auto width = static_cast<uint32_t>(std::clamp(FmtLineBytes, 1, int32_t{kLongestLine}));
  auto* bytes = static_cast<const uint8_t*>(data);
  char block[16384];
  char* out = block;
  for (uint32_t offset = 0; offset < length; offset += width) {
    if (out > block + sizeof block - 4 * kLongestLine - 64) {
      fwrite(block, 1, static_cast<size_t>(out - block), stdout);
      out = block;
    }
    if (flags & (DUMP_OFFSET | DUMP_FILEOFFSET | DUMP_ADDRESS)) {
      bool address = !(flags & (DUMP_OFFSET | DUMP_FILEOFFSET));
      memcpy(out, "0x", 2);
      out = WriteNumber(out + 2, address ? reinterpret_cast<uintptr_t>(bytes + offset) + base
                                         : uintptr_t{offset + base});
      *out++ = ':';
    }
    *out++ = ' ';
    out = WriteLine(out, bytes + offset, std::min(width, length - offset));
  }
  fwrite(block, 1, static_cast<size_t>(out - block), stdout);
  return 0;
}

}  // namespace quern
