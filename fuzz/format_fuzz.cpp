// Hex texts, dumps and structure tables out of any bytes: what FmtHex writes reads back, and
// nothing is read or written beyond what was given.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "quern/cerr.h"
#include "quern/cfmt.h"

using namespace quern;

namespace {

struct Bytes {
  const uint8_t* at;
  const uint8_t* end;

  uint8_t Byte() { return at < end ? *at++ : 0; }
  uint32_t Word() {
    uint32_t word = Byte();
    return word << 24 | static_cast<uint32_t>(Byte()) << 16 | static_cast<uint32_t>(Byte()) << 8 |
           Byte();
  }
  std::string Text() {
    std::string text;
    for (uint32_t left = Byte() % 24; left > 0; --left) text += static_cast<char>(Byte() | 1);
    return text;
  }
};

void Hex(Bytes bytes) {
  const uint32_t flags = bytes.Word();
  // Of their own block, so that a read beyond it is seen.
  std::vector<uint8_t> data(bytes.at, bytes.end);
  if (data.empty()) return;
  auto length = static_cast<uint32_t>(data.size());
  FmtHex(data.data(), length, nullptr, flags);
  std::string text = FmtHex(data.data(), length, nullptr, flags & FMT_GROUP);
  std::vector<uint8_t> back(data.size() + 5);
  uint32_t count =
      FmtUnhex(text.c_str(), static_cast<uint32_t>(text.size()), back.data(), UNHEX_BYTES);
  if (count != data.size() || memcmp(back.data(), data.data(), data.size()) != 0) abort();
  // A number stores four bytes at most, and takes a character at least.
  std::string any(data.begin(), data.end());
  std::vector<uint8_t> out(any.size() * 4 + 1);
  for (uint32_t mode : {0u, UNHEX_FIT, UNHEX_WORDS, UNHEX_LONG, UNHEX_BYTES})
    if (FmtUnhex(any.c_str(), static_cast<uint32_t>(any.size()), out.data(), mode) >= out.size())
      abort();
  FmtDump(data.data(), length, flags, flags);
}

void Structure(Bytes bytes) {
  const uint32_t width = bytes.Byte();
  std::vector<std::string> texts;
  std::vector<FieldDesc> table;
  uint32_t room = 8;
  while (bytes.at < bytes.end && table.size() < 40) {
    FieldDesc field = {bytes.Word(), bytes.Word(), nullptr, bytes.Word(), bytes.Word(), nullptr};
    texts.push_back(bytes.Text());
    texts.push_back(bytes.Text());
    table.push_back(field);
    room += field.fFlags & FIELD_SIZE;
  }
  for (size_t i = 0; i < table.size(); ++i) {
    table[i].pszName = texts[2 * i].c_str();
    if (!texts[2 * i + 1].empty()) table[i].pszComment = texts[2 * i + 1].c_str();
  }
  table.push_back({});
  std::vector<uint8_t> data(room, 0xA5);
  FmtStructWithin(table.data(), data.data(), width);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static FILE* quiet = freopen("/dev/null", "w", stdout);
  if (!quiet || size == 0) return 0;
  Bytes bytes = {data + 1, data + size};
  (*data & 1 ? Structure : Hex)(bytes);
  ErrClear();
  return 0;
}
