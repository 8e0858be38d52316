// A model of a mapped file that is edited: plain bytes and the numbers of its object.
//
// A call of the model says what the same call of the library does where the system refuses nothing.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "quern/cfile/object.h"

namespace tavrix_test {

struct FileModel {
  enum View { kNone, kReading, kWriting };
  enum Bytes { kOwn, kNoBytes, kOfTheView };

  // What an edit puts in: bytes of the caller's own, none (null), or those at `from` of the view.
  struct Source {
    Bytes kind = kOwn;
    std::string own;
    int64_t from = 0;
    uint32_t count = 0;
  };

  std::string disk;  // what the file has on the disk; its view shows the first `mapped` bytes
  uint32_t flags = 0, size = 0, most = 0, delta = 0, openSize = 0, mapped = 0, grow = 0;
  View view = kNone;
  bool based = false;     // pView is set
  bool open = false;      // has a handle
  bool named = true;      // has a name to open it again by
  uint64_t rangeEnd = 0;  // of the addresses that are its own
  bool backed = false;
  std::string backup;
  bool mayFail = false;  // what the system does with the call is not known
  std::string trail;     // of the call, with a separator in front

  bool Has(uint32_t flag) const { return flags & flag; }
  void Raise(const char* code, bool text = false) { trail = (text ? ":" : ".") + (code + trail); }

  bool Open(uint32_t word, bool again) {
    using namespace quern;
#ifdef _WIN32
    const bool held = again;
#else
    const bool held = again && !open;
#endif
    mayFail |= held && view == kWriting;  // counts as an open that shares nothing
    const uint32_t access = word & FO_ACCESS;
    if (again && (!named || access == 0)) return mayFail = true, Raise("07"), false;
    if (word & FO_BACKUP) backup = disk, backed = true;
    if (access == FO_TRUNCATE) disk.clear();
    open = true;
    flags = word | (access == 1 || access == 9 ? FO_READ : FO_WRITE);
    size = openSize = static_cast<uint32_t>(disk.size());
    uint32_t first = size;
    if (Has(FO_WRITE | FO_KEEP_NAME)) {
      if (grow == 0) grow = Growth();
      if (size == 0) first = grow;
      if (most == 0) most = kLargestFile;
    }
    if (Map(first) != 0) return Raise("07"), false;
    if (Has(FO_ZERO_END) && view == kWriting && size < mapped) disk[size] = 0;
    return true;
  }

  int32_t Map(uint32_t bytes) {
    using namespace quern;
    if (bytes == 0) return based = false, view = kNone, 0;
    // Of a view that does not grow the addresses are taken; behind those of one that does, others
    // may be.
    bool fails = based && !Has(FO_WRITE | FO_KEEP_NAME);
    if (Has(FO_WRITE | FO_KEEP_NAME)) {
      const uint64_t rounded = Rounded(uint64_t{bytes} + grow);
      if (!based && most <= 4096) return mapped = 0, Raise("01"), Raise("02"), -2;
      if (!based) rangeEnd = Rounded(most - 4096);
      mayFail |= rounded > rangeEnd;
      if (rounded <= rangeEnd) rangeEnd = std::max<uint64_t>(rounded, most);
      based = true;
      if (Has(FO_WRITE)) bytes = static_cast<uint32_t>(rounded);
    } else if (!based) {
      rangeEnd = ~uint64_t{0};
    }
    mapped = bytes;
    if (!open || (Has(FO_READ) && bytes > disk.size())) {
      Raise(Has(FO_READ) ? "10" : "11");
      fails = true;
    } else if (Has(FO_WRITE) && disk.size() < bytes) {
      disk.resize(bytes);
    }
    if (fails) return Raise("02", true), based = false, view = kNone, 2;
    based = true;
    view = Has(FO_READ) ? kReading : kWriting;
    return 0;
  }

  int32_t Resize(uint32_t change) {
    using namespace quern;
    const uint32_t becomes = size + change;
    if (becomes > most) return Raise("01"), -1;
    if (Has(FO_KEEP_NAME) && Has(FO_READ) && !Open((flags & ~FO_ACCESS) | 10, true))
      return Raise("02"), -2;
    if (becomes > mapped) {
      if (grow == 0) return Raise("03"), -3;
      if (Map(becomes) != 0) return Raise("04"), -4;
    }
    size = becomes;
    delta += change;
    return 0;
  }

  // FileReplace, at an offset from pView.
  int32_t Replace(int64_t pos, uint32_t length, const Source& source) {
    if (pos < 0 || pos > size) return Raise("01"), 0;
    const bool inside = source.kind == kOfTheView ? source.from >= 0 && source.from <= size
                                                  : source.kind == kNoBytes && !based;
    if (inside) return Raise("02"), 0;
    const bool stale = !based;  // where it is mapped only then
    const uint32_t count = source.count, change = count - length, before = size;
    if (int64_t{size} + count - length <= most) {
      if (int64_t{size} + count < length) return Raise("01"), Raise("05"), 0;
      if (Resize(change) != 0 || !Move(before, pos, length, source, count, stale, false))
        return Raise("05"), 0;
      return static_cast<int32_t>(change);
    }
    if (Resize(most - size) != 0) return Raise("06"), 0;
    const auto kept = static_cast<uint32_t>(std::clamp<int64_t>(int64_t{most} - pos, 0, count));
    if (!Move(most, pos, length, source, kept, stale, true)) return Raise("06"), 0;
    Cut(static_cast<uint32_t>(std::min<int64_t>(most - kept - pos, kept)));
    return static_cast<int32_t>(change);
  }

  void Close() {
    if (Has(quern::FO_WRITE) && open) disk.resize(size);
    if (Has(quern::FO_WRITE) && !open) Raise("02"), Raise("03");
  }

  void Revert() {
    if (open && Has(quern::FO_WRITE)) disk.resize(openSize);
    if (backed) disk = backup;
    open = false;
    Close();
  }

 private:
  static uint64_t Rounded(uint64_t bytes) { return (bytes + 65535) / 65536 * 65536; }

  uint32_t Growth() const {
    const uint32_t third = static_cast<uint32_t>(uint64_t{size} * 3 / 10);
    const uint32_t grows[16] = {4096, 0,          10'000,    100'000, 1'000'000, 5'000'000,
                                4096, 10'000'000, size / 10, third,   size / 2,  size,
                                4096, 4096,       4096,      4096};
    return grows[flags >> 16 & 15];
  }

  // The move in the view; `limit` when it may be clipped.
  bool Move(uint32_t block, int64_t pos, uint32_t length, const Source& source, uint32_t count,
            bool stale, bool limit) {
    if (view == kNone) return Raise("01"), false;
    if (stale || pos > block || length > block - pos) return Raise("02"), false;
    if (length == 0 && source.count == 0) return true;
    if (view == kReading) return Raise("02"), false;
    const size_t to = static_cast<size_t>(pos) + count, from = static_cast<size_t>(pos) + length;
    size_t moved = block - from;
    if (block > mapped || (!limit && to + moved > mapped)) return Raise("02"), false;
    if (limit) moved = to < mapped ? std::min<size_t>(moved, mapped - to) : 0;
    const std::string tail = disk.substr(from, moved);
    std::copy(tail.begin(), tail.end(), disk.begin() + static_cast<ptrdiff_t>(to));
    std::string in = source.own.substr(0, count);
    if (source.kind == kOfTheView) in = disk.substr(static_cast<size_t>(source.from), count);
    std::copy(in.begin(), in.end(), disk.begin() + static_cast<ptrdiff_t>(pos));
    return true;
  }

  // Makes the data smaller by the place of the last separator behind the limit's new bytes.
  void Cut(uint32_t region) {
    const char* const marks[] = {"", "[", "\r\n\r\n", "\r\n"};
    const std::string mark = marks[std::min((flags & quern::FO_SEP_MASK) >> 20, 4u) & 3];
    const uint64_t start = size - region, end = std::min<uint64_t>(mapped, disk.size());
    const uint64_t searched = mark == "[" ? size : region;
    uint64_t found = 0;
    for (uint64_t i = 1; i + mark.size() <= searched + 1 && start + i + mark.size() <= end; ++i)
      if (disk.compare(start + i, mark.size(), mark) == 0) found = i;
    if (mark == "[" && found != 0) --found;
    if (!mark.empty() && found != 0) Resize(static_cast<uint32_t>(0 - found));
  }
};

}  // namespace tavrix_test
