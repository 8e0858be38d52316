#include "quern/ccsl/expand.h"

#include <cstdlib>
#include <cstring>

#include "platform/win32.h"
#include "quern/ccsl/console.h"
#include "quern/cerr.h"

namespace quern {
namespace {

constexpr char kModule[] = "ccsl";

constexpr uint32_t kSpare = 20;  // bytes kept behind the text
constexpr uint32_t kMostReplacements = 1000;
constexpr uint32_t kMostText = 1 << 20;

enum class Found { kNothing, kValue, kNoMemory };

// A variable's value, on the heap; an empty one is a value, too.
Found ValueOf(const char* name, char** value, uint32_t* length) {
  DWORD room = GetEnvironmentVariableA(name, nullptr, 0);
  if (room == 0) return Found::kNothing;
  *value = static_cast<char*>(malloc(room));
  if (!*value) return Found::kNoMemory;
  *length = GetEnvironmentVariableA(name, *value, room);
  if (*length < room) return Found::kValue;
  free(*value);
  return Found::kNothing;
}

// One expansion in progress. The buffer's size stays kSpare and more ahead of the text's length.
class Expansion {
 public:
  Expansion(MemBuf* buf, const char* text) : buf_(buf), length_(strlen(text)) {
    char* spare = nullptr;
    if (MemBufSet(buf, text, static_cast<uint32_t>(length_)))
      spare = MemBufAdd(buf, nullptr, kSpare);
    failed_ = !spare;
    if (spare) memset(spare, 0, kSpare);
  }

  char* Run() {
    bool handled = false;
    size_t at = 0;
    while (!failed_ && at < length_ && replacements_ < kMostReplacements && length_ <= kMostText) {
      char* open = static_cast<char*>(memchr(buf_->pData + at, '%', length_ - at));
      char* close = open ? strchr(open + 1, '%') : nullptr;
      if (close) {
        at = Reference(static_cast<size_t>(open - buf_->pData),
                       static_cast<size_t>(close - buf_->pData));
      } else if (!handled) {
        WholeText();
        break;
      } else {
        break;
      }
      handled = true;
    }
    return failed_ || !lastHadValue_ ? nullptr : buf_->pData;
  }

 private:
  // Replaces the reference between two '%'; returns where the walk goes on.
  size_t Reference(size_t open, size_t close) {
    buf_->pData[close] = '\0';
    char* value = nullptr;
    uint32_t length = 0;
    Found found = ValueOf(buf_->pData + open + 1, &value, &length);
    buf_->pData[close] = '%';
    if (found == Found::kNothing) return close + (open + 1);
    Replace(found, open, close + 1, close - open - 1, value, length);
    return open;
  }

  // The text has no reference: it may be a name as it stands.
  void WholeText() {
    char* value = nullptr;
    uint32_t length = 0;
    Found found = ValueOf(buf_->pData, &value, &length);
    if (found != Found::kNothing) Replace(found, 0, length_, length_, value, length);
  }

  // Puts a fetched value in the place of the bytes from `from` to `to`, which name it with
  // `nameLength`.
  void Replace(Found found, size_t from, size_t to, size_t nameLength, char* value,
               uint32_t length) {
    uint64_t size = uint64_t{buf_->nSize} + length - nameLength;
    if (found == Found::kNoMemory || size > UINT32_MAX ||
        (length > nameLength && !MemBufSet(buf_, nullptr, static_cast<uint32_t>(size)))) {
      if (found == Found::kValue) free(value);
      ErrRaise(kModule, 531, 2);
      failed_ = true;
      return;
    }
    memmove(buf_->pData + from + length, buf_->pData + to, length_ - to + 1);
    memcpy(buf_->pData + from, value, length);
    free(value);
    length_ = length_ - (to - from) + length;
    MemBufSet(buf_, nullptr, static_cast<uint32_t>(size));
    lastHadValue_ = length != 0;
    ++replacements_;
  }

  MemBuf* buf_;
  size_t length_;
  uint32_t replacements_ = 0;
  bool lastHadValue_ = false;
  bool failed_ = false;
};

}  // namespace

char* CslExpand(const char* text) {
  Console* console = CslOnDemand();
  if (!console) return ErrRaise(kModule, 497, 1000), nullptr;
  if (!text) MemBufFree(&console->bufExpand);
  if (!text || !*text) return nullptr;
  return Expansion(&console->bufExpand, text).Run();
}

char* CslExpandTake() { return CslCurrent ? MemBufTake(&CslCurrent->bufExpand) : nullptr; }

}  // namespace quern
