// Searches of any bytes in blocks of exactly their size, held against plain loops where that is
// cheap.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>

#include "quern/cmem/search.h"

namespace {

using namespace quern;

class Input {
 public:
  Input(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}
  uint8_t Byte() { return at_ == end_ ? 0 : *at_++; }
  std::string Take(size_t most) {
    const size_t size = std::min(most, static_cast<size_t>(end_ - at_));
    at_ += size;
    return std::string(reinterpret_cast<const char*>(at_ - size), size);
  }

 private:
  const uint8_t* at_;
  const uint8_t* end_;
};

// A copy on the heap of exactly its size; the sanitizer guards both ends.
class Exact {
 public:
  explicit Exact(const std::string& text)
      : size_(static_cast<uint32_t>(text.size())),
        data_(static_cast<char*>(std::malloc(text.size()))) {
    std::memcpy(data_, text.data(), size_);
  }
  Exact(const Exact&) = delete;
  Exact& operator=(const Exact&) = delete;
  ~Exact() { std::free(data_); }

  char* data() const { return data_; }
  uint32_t size() const { return size_; }

 private:
  uint32_t size_;
  char* data_;
};

void Check(bool holds) {
  if (!holds) std::abort();
}

bool Same(char a, char b, uint32_t flags) {
  return flags & MEM_NOCASE ? std::tolower(static_cast<unsigned char>(a)) ==
                                  std::tolower(static_cast<unsigned char>(b))
                            : a == b;
}

const char* PlainFind(const char* block, uint32_t length, const std::string& pattern,
                      uint32_t flags) {
  if (pattern.empty() || length < pattern.size()) return nullptr;
  const uint32_t places = length - static_cast<uint32_t>(pattern.size()) + 1;
  for (uint32_t i = 0; i < places; ++i) {
    const char* at = block + (flags & MEM_BACKWARD ? places - i : i);
    size_t same = 0;
    while (same < pattern.size() && Same(at[same], pattern[same], flags)) ++same;
    if (same == pattern.size()) return at;
  }
  return nullptr;
}

const char* PlainFindAny(const char* block, uint32_t length, const std::string& set,
                         uint32_t flags) {
  if (set.empty()) return nullptr;
  for (uint32_t i = 0; i < length; ++i) {
    const char* at = block + (flags & MEM_BACKWARD ? length - 1 - i : i);
    bool in = false;
    for (char member : set) in |= Same(*at, member, flags);
    if (in != ((flags & MEM_NOTINSET) != 0)) return at;
  }
  return nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const uint8_t what = input.Byte(), bits = input.Byte();
  uint32_t flags = (bits & 1 ? MEM_NOCASE : 0) | (bits & 2 ? MEM_BACKWARD : 0) |
                   (bits & 4 ? MEM_NOTINSET : 0) | (bits & 8 ? 0xA0000000 : 0);
  const std::string pattern = input.Take(input.Byte() % (bits & 16 ? 200 : 12));
  const std::string with = input.Take(bits >> 5);
  const uint8_t repeated = input.Byte();
  std::string text = input.Take(5000);
  if (repeated % 4 == 0 && !text.empty())  // what repeats itself defeats a filter
    for (const std::string unit = text; text.size() < 16 * size_t{repeated};) text += unit;
  const uint32_t length = static_cast<uint32_t>(text.size());
  const uint32_t n = static_cast<uint32_t>(pattern.size());

  switch (what % 8) {
    case 0: {
      const Exact block(flags & MEM_BACKWARD ? text + 'a' : text), sought(pattern);
      Check(MemFind(block.data(), length, sought.data(), n, flags) ==
            PlainFind(block.data(), length, pattern, flags));
      break;
    }
    case 1:
    case 2:
    case 3: {  // the bytes that follow the pattern end with the first zero byte
      std::string memory = pattern + with + '\0';
      memory.resize(memory.find('\0', pattern.size()) + 1);
      const bool plain = pattern.find('*') == pattern.npos && pattern.find('\0') == pattern.npos;
      const Exact block(text + 'a'), sought(plain ? pattern : memory);
      const char* hit = MemFind(block.data(), length, sought.data(), n, flags | MEM_WILDCARD);
      Check(!hit || (hit >= block.data() && hit <= block.data() + length));
      if (plain && pattern.find('?') == pattern.npos && n != 0 && n <= length)
        Check((hit != nullptr) == (MemCmp(block.data(), sought.data(), n, flags) == 0));
      MemCount(block.data(), length, sought.data(), n, flags | MEM_WILDCARD);
      break;
    }
    case 4: {
      const Exact block(text), set(pattern);
      const char* hit =
          MemFindAny(block.data(), static_cast<int32_t>(length), set.data(), n, flags);
      Check(hit == PlainFindAny(block.data(), length, pattern, flags));
      if (length == 0) break;
      const char* last = block.data() + length - 1;
      Check(MemFindAny(last, -static_cast<int32_t>(length), set.data(), n, flags ^ MEM_BACKWARD) ==
            hit);
      // A count whose hit is the first byte does not return.
      flags &= ~MEM_BACKWARD;
      if (PlainFindAny(block.data(), length, pattern, flags) != block.data())
        MemCountAny(block.data(), length, set.data(), n, flags);
      break;
    }
    case 5: {
      // Deleting the last byte again and again does not return.
      if (n == 1 && with.empty() && length != 0 && Same(text.back(), pattern[0], flags)) break;
      const size_t growth = with.size() > n && n != 0 ? (with.size() - n) * (length / n) : 0;
      const Exact block(text + std::string(growth, '.'));
      const uint32_t total = MemReplaceAll(block.data(), length, pattern.data(), n, with.data(),
                                           static_cast<uint32_t>(with.size()), flags);
      if (with.size() > n) Check(0 - total <= growth);
      break;
    }
    case 6: {
      const Exact block(text + std::string(length * with.size(), '.')), set(pattern);
      MemReplaceAny(block.data(), length, set.data(), n, bits & 8 ? with.data() : nullptr,
                    static_cast<uint32_t>(with.size()), flags);
      break;
    }
    default: {
      const Exact block(text + 'a'), sought(pattern);
      const uint32_t count = MemCount(block.data(), length, sought.data(), n, flags);
      Check((count != 0) == (MemFind(block.data(), length, sought.data(), n, flags) != nullptr));
      break;
    }
  }
  return 0;
}
