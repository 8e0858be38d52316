#include "quern/ctime/words.h"

#include <cstring>

#include "quern/cmem/search.h"
#include "quern/cmem/split.h"

namespace quern {
namespace {

constexpr char kSpace[] = " \t\n\v\f\r";

}  // namespace

uint32_t StrWordLen(const char* text) {
  const char* at = text + strspn(text, kSpace);
  if (*at == '"') {
    const char* close = strchr(at + 1, '"');
    at = close ? close + 1 : at + strlen(at);
  } else {
    at += strcspn(at, kSpace);
  }
  return static_cast<uint32_t>(at - text);
}

uint32_t StrQuote(char* text, uint32_t length) {
  bool quotes = length != 0 && memchr(text, '"', length);
  if (!quotes && !MemFindAny(text, static_cast<int32_t>(length), " \t", 2, 0)) return length;
  if (text[0] == '"' && text[length - 1] == '"') return length;
  if (quotes) {
    uint32_t kept = 0;
    for (uint32_t i = 0; i < length; ++i)
      if (text[i] != '"') text[kept++] = text[i];
    length = kept;
  }
  memmove(text + 1, text, length);
  text[0] = '"';
  text[length + 1] = '"';
  text[length + 2] = '\0';
  return length + 2;
}

uint32_t StrCopyN(char* destination, const char* source, uint32_t count) {
  uint32_t length = static_cast<uint32_t>(strnlen(source, count));
  memmove(destination, source, length);
  return length;
}

const char* StrFindToken(const char* text, const char* list, const char* separator,
                         uint32_t flags) {
  if (!list) return nullptr;
  bool split = separator && *separator;
  const char* sep = split ? separator : "";
  uint32_t sepLength = split ? static_cast<uint32_t>(strlen(sep)) : 1;
  return MemSplitFindIn(text, static_cast<uint32_t>(strlen(text)), list,
                        static_cast<uint32_t>(strlen(list)), sep, sepLength, flags);
}

}  // namespace quern
