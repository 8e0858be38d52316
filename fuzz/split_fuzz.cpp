// The splitter over any text, separator and flags: tokens lie within the text.

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "quern/cmem/search.h"
#include "quern/cmem/split.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  uint32_t flags = (data[0] & 15u) | static_cast<uint32_t>(data[1] & 14) << 16;
  uint32_t find = data[1] & 16 ? quern::MEM_NOCASE : data[1] & 32 ? quern::MEM_BACKWARD : 0;
  uint32_t sepLength = 1 + data[2] % 3;
  size_t inLength = data[3] % 8;
  data += 4;
  size -= 4;
  if (size < sepLength + inLength) return 0;
  const char* sep = reinterpret_cast<const char*>(data);
  // Backward searches read the byte behind the block.
  char* in = static_cast<char*>(calloc(1, inLength + 1));
  memcpy(in, sep + sepLength, inLength);
  uint32_t length = static_cast<uint32_t>(size - sepLength - inLength);
  char* text =
      static_cast<char*>(malloc(length + 1));  // exact: one byte behind the text is the caller's
  memcpy(text, sep + sepLength + inLength, length);
  text[length] = '\0';
  quern::MemSplit split;
  quern::MemSplitInit(&split, text, length, sep, sepLength);
  for (int step = 0; step < 20; ++step) {
    const char* token =
        quern::MemSplitNext(&split, 0, 0, step % 5 == 4 ? quern::SPLIT_PREV | flags : flags);
    if (!token) continue;
    size_t at = static_cast<size_t>(token - text);
    if (at > length || split.nToken > length - at) abort();
  }
  const char* hit = quern::MemSplitFind(&split, in, static_cast<uint32_t>(inLength),
                                        (flags & quern::SPLIT_TRIM) | find);
  if (hit && (hit < in || hit > in + inLength)) abort();
  free(text);
  free(in);
  return 0;
}
