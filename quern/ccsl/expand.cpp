#include "quern/ccsl/expand.h"

#include <cstdio>
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

// One expansion in progress, in a block with a gap: what the walk has passed lies in front of the
// gap; behind it the rest of the text, terminated. Values are fetched into the gap.
class Expansion {
 public:
  Expansion(MemBuf* buf, const char* text) : buf_(buf), end_(strlen(text)), size_(end_ + kSpare) {
    bool inside = MemBufHolds(buf, text);  // a part of an earlier result
    if (inside) memmove(buf->pData, text, end_);
    char* data = MemBufSet(buf, nullptr, static_cast<uint32_t>(size_));
    failed_ = !data;
    if (failed_) return;
    if (!inside) memcpy(data, text, end_);
    memset(data + end_, 0, kSpare);
  }

  char* Run() {
    if (failed_) return nullptr;
    bool handled = false;
    while (!failed_ && in_ < end_ && replacements_ < kMostReplacements && Length() <= kMostText) {
      char* at = buf_->pData + in_;
      char* open = static_cast<char*>(memchr(at, '%', end_ - in_));
      char* close = open ? strchr(open + 1, '%') : nullptr;
      if (!close) {
        if (!handled) WholeText();
        break;
      }
      Pass(static_cast<size_t>(open - at));
      Reference(static_cast<size_t>(close - open));
      handled = true;
    }
    return CloseGap() && lastHadValue_ ? buf_->pData : nullptr;
  }

 private:
  size_t Length() const { return out_ + (end_ - in_); }

  // The walk goes on by `count` bytes, if there are so many.
  void Pass(size_t count) {
    if (count > end_ - in_) count = end_ - in_;
    memmove(buf_->pData + out_, buf_->pData + in_, count);
    out_ += count;
    in_ += count;
  }

  // Replaces the reference at the walk, whose second '%' lies `close` bytes behind the first, or
  // passes it.
  void Reference(size_t close) {
    buf_->pData[in_ + close] = '\0';
    uint32_t length;
    if (!Fetch(1, &length)) {
      buf_->pData[in_ + close] = '%';
      Pass(close + (out_ + 1));
      return;
    }
    in_ += close + 1;
    Replaced(length, close - 1);
    if (memchr(buf_->pData + out_, '%', length)) {
      in_ -= length;
      memmove(buf_->pData + in_, buf_->pData + out_, length);
    } else {
      out_ += length;
    }
  }

  // The text has no reference: it may be a name as it stands.
  void WholeText() {
    uint32_t length;
    if (!Fetch(0, &length)) return;
    Replaced(length, end_ - in_);
    in_ = end_;
    out_ += length;
  }

  void Replaced(uint32_t length, size_t nameLength) {
    size_ = size_ + length - nameLength;
    lastHadValue_ = length != 0;
    ++replacements_;
  }

  // Fetches the value of the variable whose name stands `name` bytes behind the gap. False when
  // there is none, or after a failure.
  bool Fetch(size_t name, uint32_t* length) {
    for (;;) {
      DWORD capacity = static_cast<DWORD>(in_ - out_);
      const char* text = buf_->pData + in_ + name;
      *length = GetEnvironmentVariableA(text, buf_->pData + out_, capacity);
      // An empty value is a value, too.
      if (*length == 0 && GetEnvironmentVariableA(text, nullptr, 0) == 0) return false;
      if (*length < capacity) return true;
      if (!Widen(*length)) return false;
    }
  }

  // Makes the gap wider, by `count` bytes at least. False after a failure.
  bool Widen(uint32_t count) {
    uint64_t size = uint64_t{buf_->nSize} + buf_->nSize / 2 + count;
    size_t rest = end_ - in_;
    if (!Resize(size)) return false;
    end_ = static_cast<size_t>(size);
    memmove(buf_->pData + end_ - rest, buf_->pData + in_, rest);
    in_ = end_ - rest;
    return true;
  }

  bool CloseGap() {
    Pass(end_ - in_);
    buf_->pData[out_] = '\0';
    return !failed_ && Resize(size_);
  }

  bool Resize(uint64_t size) {
    failed_ = size > UINT32_MAX || !MemBufSet(buf_, nullptr, static_cast<uint32_t>(size));
    if (failed_) ErrRaise(kModule, 531, 2);
    return !failed_;
  }

  MemBuf* buf_;
  size_t out_ = 0;  // the gap
  size_t in_ = 0;   // and its end
  size_t end_;      // of the rest
  uint64_t size_;   // of the buffer when the gap is closed: kSpare and more ahead of the text
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

char* CslSetPrompt(const char* escape) {
  // A copy: the text may be an earlier result of the expansion.
  size_t length = escape && *escape ? strlen(escape + 1) : 0;
  char* rest = static_cast<char*>(malloc(length + 1));
  if (!rest) return nullptr;
  memcpy(rest, length ? escape + 1 : "", length + 1);
  char* prompt = CslExpand("prompt");
  if (const char* sign = prompt ? strchr(prompt, '$') : nullptr) {
    bool follows = sign[1] == 'e';
    size_t at = follows ? static_cast<size_t>(sign + 2 - prompt) : strlen(prompt);
    size_t size = at + strlen("$e") + length + kSpare;
    MemBuf* buf = &CslCurrent->bufExpand;
    if (buf->nSize < size) prompt = MemBufSet(buf, nullptr, static_cast<uint32_t>(size));
    if (prompt) {
      sprintf(prompt + at, "%s%s", follows ? "" : "$e", rest);
      SetEnvironmentVariableA("prompt", prompt);
    }
  }
  free(rest);
  return prompt;
}

char* CslExpandTake() { return CslCurrent ? MemBufTake(&CslCurrent->bufExpand) : nullptr; }

}  // namespace quern
