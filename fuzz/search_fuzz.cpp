// Searches of any bytes in blocks of exactly their size, held against the model of their rules.
#include <cstdlib>
#include <string>

#include "tests/support/search_model.h"

namespace {

using namespace quern;
using namespace quern::model;

bool TryCounts(const std::string& text, const std::string& pattern, uint32_t flags) {
  const Exact block(text + 'a'), sought(pattern);
  const uint32_t length = static_cast<uint32_t>(text.size());
  const uint32_t count = MemCount(block.data(), length, sought.data(), sought.size(), flags);
  // A count whose hit is the first byte does not return.
  if (ModelFindAny(text, pattern, flags & ~MEM_BACKWARD) != 0)
    MemCountAny(block.data(), length, sought.data(), sought.size(), flags & ~MEM_BACKWARD);
  return (count != 0) == (ModelFind(text + 'a', length, pattern, flags) != kNone);
}

bool Try(int what, const std::string& text, const Replacing& by) {
  if (what == 0) return TryFind(text, 'a', by.what, by.flags);
  if (what == 1) return text.empty() || TryWild(text, 'a', by.what, by.with, by.flags);
  if (what == 2) return TryFindAny(text, by.what, by.flags);
  if (what == 3) return TryReplace(false, text, by);
  if (what == 4) return IsEndless(text, by) || TryReplace(true, text, by);
  return TryCounts(text, by.what, by.flags);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  const uint8_t what = data[0], bits = data[1], length = data[2], repeated = data[3];
  std::string text(reinterpret_cast<const char*>(data + 4), std::min<size_t>(size - 4, 5000));
  const auto take = [&text](size_t most) {
    const std::string part = text.substr(0, most);
    text.erase(0, most);
    return part;
  };
  Replacing by;
  by.what = take(length % (bits & 16 ? 200 : 12));
  by.with = take(bits >> 5);
  by.copies = (bits & 8) == 0;
  by.flags = (bits & 1 ? MEM_NOCASE : 0) | (bits & 2 ? MEM_BACKWARD : 0) |
             (bits & 4 ? MEM_NOTINSET : 0) | (bits & 8 ? 0xA0000000 : 0);
  if (repeated % 4 == 0 && !text.empty())  // what repeats itself defeats a filter
    for (const std::string unit = text; text.size() < 16 * size_t{repeated};) text += unit;
  if (!Try(what % 6, text, by)) std::abort();
  return 0;
}
