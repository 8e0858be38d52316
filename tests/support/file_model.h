// A model of an edited file: plain bytes and the numbers of its object.
//
// A call of the model says what the same call of the library does. Where the system may refuse a
// step, or a result is left open, the model has a choice, which `wanted` makes: 0 takes the usual
// way at each of them, and n the other one at the n-th. What agrees with none of them is wrong.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "quern/cfile/object.h"

namespace tavrix_test {

class FileModel {
 public:
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
  bool missing = false;
  uint64_t diskLimit = ~uint64_t{0};
  bool mayFail = false;  // the system may refuse anything

  uint32_t flags = 0, size = 0, most = 0, delta = 0, openSize = 0, mapped = 0, grow = 0;
  View view = kNone;
  bool based = false;  // pView is set
  bool stream = false;
  bool open = false;        // has a handle or a stream
  int place = 0;            // counts the places where it was mapped
  uint64_t rangeEnd = 0;    // of the addresses that are its own
  bool mappedOpen = false;  // nMapped may be 0 as well
  bool basedOpen = false, viewOpen = false, handleOpen = false;

  int wanted = 0, seen = 0;     // of the steps that may be refused
  int wantedWay = 0, ways = 0;  // of what is left open
  std::string trail;            // of the last call, with a separator in front

  void Begin(int choice, int way) {
    wanted = choice, seen = 0, wantedWay = way, ways = 0;
    trail.clear();
    mappedOpen = basedOpen = viewOpen = handleOpen = false;
  }
  std::string Trail() const { return trail.empty() ? "" : trail.substr(1); }
  bool Has(uint32_t flag) const { return flags & flag; }

  // Whether a text finds no memory.
  bool NoMemory() {
    if (!Refused()) return false;
    return Raise("04"), true;
  }

  // FileOpen; `again` by the name of the object. One that fails leaves flags and a view that agree:
  // all as it was, but what is not mapped any more, or what was set so far.
  bool Open(uint32_t word, bool again) {
    const FileModel old = *this;
    if (OpenSteps(word, again)) return true;
    if (!again || !opened) return false;
    if (Other()) {
      flags = old.flags, size = old.size, openSize = old.openSize;
      grow = old.grow, most = old.most, writes = old.writes;
    }
    if (view != kNone && (view == kWriting) != !Has(quern::FO_READ)) Unmap();
    basedOpen = view == kNone;
    mappedOpen = true;
    return false;
  }

  // FileMap.
  int32_t Map(uint32_t asked) {
    using namespace quern;
    if (asked == 0) return Unmap(), 0;
    uint32_t bytes = asked;
    if (Has(FO_WRITE | FO_KEEP_NAME)) {
      uint64_t rounded = Rounded(uint64_t{asked} + grow);
      if (int32_t code = Reserve(rounded)) return Raise("02"), code;
      if (Has(FO_WRITE)) bytes = static_cast<uint32_t>(rounded);
    } else {
      rangeEnd = ~uint64_t{0};
    }
    bool reading = Has(FO_READ), writing = !reading && Has(FO_WRITE), made = open && !stream;
    if (reading && bytes > disk.size()) made = false;
    if (writing && bytes > disk.size() && bytes > diskLimit) made = false;
    if (!reading && !writing) made = false;
    int number = 0;
    if (!made || Refused()) {
      number = reading ? 10 : writing ? 11 : 13;
      Raise(std::to_string(number));
    } else if (writing && disk.size() < bytes) {
      disk.resize(bytes);
    }
    mapped = bytes;
    // A view for reading stays until the new one is there, and where it is nothing else fits. Where
    // the addresses of a view that grows end, others may be.
    bool taken = based && !Has(FO_WRITE | FO_KEEP_NAME);
    if (number != 0 || Refused(bytes > rangeEnd, taken)) {
      Raise("02", true);
      Unmap();
      return 2;
    }
    if (!based) ++place;
    based = true;
    view = writing ? kWriting : kReading;
    return 0;
  }

  // FileResize.
  int32_t Resize(uint32_t change) {
    using namespace quern;
    uint32_t becomes = size + change;
    if (becomes > most) return Raise("01"), -1;
    if (Has(FO_KEEP_NAME) && Has(FO_READ) && !Open((flags & ~FO_ACCESS) | 10, true))
      return Raise("02"), -2;
    if (!Has(FO_STREAMED) && becomes > mapped) {
      if (grow == 0) return Raise("03"), -3;
      if (Map(becomes) != 0) return Raise("04"), -4;
    }
    size = becomes;
    delta += change;
    return 0;
  }

  // FileReplace, at an offset from pView.
  int32_t Replace(int64_t pos, uint32_t length, const Source& source) {
    if (stream) return ReplaceInStream(pos, length, source);
    if (pos < 0 || pos > size) return Raise("01"), 0;
    bool inside = source.kind == kOfTheView ? source.from >= 0 && source.from <= size
                                            : source.kind == kNoBytes && !based;
    if (inside) return Raise("02"), 0;
    const int oldPlace = based ? place : -1;
    const uint32_t count = source.count, change = count - length, before = size;
    if (int64_t{size} + count - length <= most) {
      if (int64_t{size} + count < length) return Raise("01"), Raise("05"), 0;
      if (Resize(change) != 0 || !Move(before, pos, length, source, count, oldPlace, false))
        return Raise("05"), 0;
      return static_cast<int32_t>(change);
    }
    if (Resize(most - size) != 0) return Raise("06"), 0;
    auto kept = static_cast<uint32_t>(
        std::clamp<int64_t>(int64_t{most} - pos, 0, static_cast<int64_t>(count)));
    if (!Move(most, pos, length, source, kept, oldPlace, true)) return Raise("06"), 0;
    auto region = static_cast<uint32_t>(std::min<int64_t>(most - kept - pos, kept));
    Cut(disk.data(), most - region, std::min<uint64_t>(mapped, disk.size()), region);
    return static_cast<int32_t>(change);
  }

  // FileClass, of an object that is there.
  void Close() {
    using namespace quern;
    if (stream) Unmap();
    if (Has(FO_WRITE)) {
      if (stream) {
        if (Refused()) Raise("04");
      } else if (!open) {
        Raise("02");
        Raise("03");
      } else {
        bool lost = Refused();
        if (lost) Raise("02");
        if (lost ? Refused() : Refused(false, size > diskLimit))
          Raise("03");
        else
          disk.resize(size);
      }
    }
    const FileModel old = *this;
    *this = {};
    disk = old.disk, missing = old.missing, diskLimit = old.diskLimit, trail = old.trail;
    wanted = old.wanted, seen = old.seen, wantedWay = old.wantedWay, ways = old.ways;
    mayFail = old.mayFail;
  }

  // FileRevert, of a mapped file.
  int32_t Revert() {
    Unmap();
    if (open && writes && !Refused()) disk.resize(openSize);
    open = false;
    bool lost = backed && (backupLost || Refused());
    if (backed && !lost) disk = backup, missing = false;
    bool deleted = !lost && !(backed && Refused());
    bool had = backed;
    bool failed = had && (lost || !deleted);
    Close();
    if (failed) return Raise("02"), -2;
    return 0;
  }

  bool named = false, full = false;  // has a name record; with a path in it
  bool backed = false, backupLost = false;
  uint32_t at = 0;  // of a stream

 private:
  std::string backup;
  bool opened = false;  // the last open has a handle
  bool reads = false, writes = false, appends = false;

  static uint64_t Rounded(uint64_t bytes) { return (bytes + 65535) / 65536 * 65536; }

  void Raise(const std::string& code, bool text = false) {
    trail = (text ? ":" : ".") + code + trail;
  }

  // A step that the system refuses for sure, perhaps, or not at all.
  bool Refused(bool perhaps = false, bool surely = false) {
    if (surely) return true;
    return (perhaps || mayFail) && ++seen == wanted;
  }
  bool Other() { return ++ways == wantedWay; }

  bool OpenSteps(uint32_t word, bool again) {
    using namespace quern;
    handleOpen = again, opened = false;  // one that fails may have closed the old handle
    const uint32_t former = flags;
    if (!again && Refused()) {
      for (const char* code : {"02", "1000", "01"}) Raise(code);
      return false;
    }
    if (again && !named) return Raise("07"), false;
    if (!again && (word & (FO_KEEP_NAME | FO_NAME | FO_BACKUP))) {
      if (Refused()) return Raise("02"), false;
      if (Refused()) return Raise("02"), Raise("02"), false;
      named = full = true;
    }
    if (!again && (word & FO_BACKUP)) {
      if (Refused()) return Raise("03"), false;
      backed = true;
      backup = disk;
      if (missing || Refused())
        backupLost = true;
      else if (Refused())
        backed = false;
    }
    uint32_t access = word & FO_ACCESS;
    if (access == 8 || access == 9) access = 1;
    if (access == 10) access = 2;
    int kind = access == 1    ? 1
               : access == 2  ? (word & FO_MAPPED ? 6 : 2)
               : access == 16 ? 4
               : access == 18 ? (word & FO_MAPPED ? 7 : 6)
               : access == 32 ? 3
               : access == 64 ? 5
                              : 0;
    if (kind == 0) return Raise(word & FO_MAPPED ? "19" : "29", true), false;
    bool makes = access == 16 || access == 18 || access == 32;
#ifdef _WIN32
    bool held = view == kWriting;  // counts as an open that shares nothing
#else
    bool held = false;
#endif
    if ((again && !full) || (missing && !makes) || (!missing && access == 16) || Refused(held))
      return Raise(std::to_string(kind + (word & FO_MAPPED ? 10 : 20)),
                   !(access == 16 && !missing && !(word & FO_MAPPED))),
             false;
    if (missing || access == 32 || (access == 64 && (word & FO_MAPPED))) disk.clear();
    missing = false;
    open = opened = true;
    stream = !(word & FO_MAPPED);
    reads = access != 32 && access != 16;
    writes = access != 1;
    appends = access == 18;
    if (stream && Refused()) return Raise("20"), false;
    flags = word | (access == 1 || (stream && access == 2) ? FO_READ : FO_WRITE);
    size = openSize = static_cast<uint32_t>(disk.size());
    at = size;
    if (word & FO_STAT) {
      if (stream) return Raise("03"), Raise("03"), false;
      for (const char* code : {"01", "02", "03"}) {
        if (Refused()) {
          if (again && view != kNone) flags = former;
          return Raise(code), Raise("03"), false;
        }
        named = true;
      }
      named = true;
    }
    uint32_t first = size;
    if (Has(FO_WRITE | FO_KEEP_NAME)) {
      if (grow == 0) grow = Growth();
      if (size == 0) first = grow;
      if (most == 0) most = kLargestFile;
    }
    if (stream) return true;
    if (Map(first) != 0) return Raise("07"), false;
    if (Has(FO_ZERO_END) && view == kWriting && size < mapped) disk[size] = 0;
    return true;
  }

  uint32_t Growth() const {
    const uint32_t third = static_cast<uint32_t>(uint64_t{size} * 3 / 10);
    const uint32_t grows[16] = {4096, 0,          10'000,    100'000, 1'000'000, 5'000'000,
                                4096, 10'000'000, size / 10, third,   size / 2,  size,
                                4096, 4096,       4096,      4096};
    return grows[flags >> 16 & 15];
  }

  void Unmap() {
    view = kNone;
    based = false;
    mappedOpen = true;
  }

  int32_t Reserve(uint64_t extent) {
    mapped = 0;
    if (!based) {
      if (most <= 4096 || Refused()) return Raise("01"), -2;
      if (Refused()) return Raise("02"), -2;
      based = true;
      ++place;
      rangeEnd = Rounded(most - 4096);
    } else if (view != kNone) {
      for (const char* number : {"10", "12", "11", "13"}) {
        if (!Refused()) continue;
        view = kNone;
        viewOpen = true;
        return Raise(std::string("05") + number), -2;
      }
    }
    view = kNone;
    if (extent > quern::kLargestFile) return Raise("14", true), -2;
    // What was behind the new reserve is not the file's own any more.
    if (extent > rangeEnd) return 0;
    rangeEnd = std::max<uint64_t>(extent, Rounded(most));
    return 0;
  }

  // The move in the view; `limit` when it may be clipped.
  bool Move(uint32_t block, int64_t pos, uint32_t length, const Source& source, uint32_t count,
            int oldPlace, bool limit) {
    if (view == kNone) return Raise("01"), false;
    if (oldPlace != place) return Raise("02"), false;  // an address of before
    // Nothing for nothing may be done anywhere.
    if (length == 0 && source.count == 0 && Other()) return true;
    if (view == kReading) return Raise("02"), false;
    if (pos > block || length > block - pos) return Raise("02"), false;
    auto to = static_cast<size_t>(pos) + count, from = static_cast<size_t>(pos) + length;
    size_t moved = block - from;
    if (block > mapped || (!limit && to + moved > mapped)) {
      if (Other()) return false;
      return Raise("02"), false;
    }
    if (limit) moved = to < mapped ? std::min<size_t>(moved, mapped - to) : 0;
    std::string tail = disk.substr(from, moved);
    std::copy(tail.begin(), tail.end(), disk.begin() + static_cast<ptrdiff_t>(to));
    std::string in = source.kind == kOwn ? source.own.substr(0, count)
                     : source.kind == kOfTheView
                         ? disk.substr(static_cast<size_t>(source.from), count)
                         : "";
    std::copy(in.begin(), in.end(), disk.begin() + static_cast<ptrdiff_t>(pos));
    return true;
  }

  // Makes the data smaller by the last separator in `bytes`, of which `end` are there.
  void Cut(const char* bytes, uint64_t start, uint64_t end, uint32_t region) {
    const char* mark = Has(0x100000) ? (Has(0x200000) ? "\r\n" : "[") : "\r\n\r\n";
    if (!(flags & quern::FO_SEP_MASK) || (flags & quern::FO_SEP_MASK) > quern::FO_SEP_LINE) return;
    uint64_t searched = *mark == '[' ? size : region, width = strlen(mark), found = 0;
    for (uint64_t i = 1; i + width <= searched + 1 && start + i + width <= end; ++i) {
      if (memcmp(bytes + start + i, mark, width) == 0) found = i;
    }
    if (*mark == '[' && found != 0) --found;
    if (found != 0) Resize(static_cast<uint32_t>(0 - found));
  }

  bool Write(uint64_t* where, const std::string& bytes) {
    if (bytes.empty()) return true;
    if (!writes) return false;
    if (appends) *where = disk.size();
    if (disk.size() < *where + bytes.size()) disk.resize(*where + bytes.size());
    disk.replace(*where, bytes.size(), bytes);
    *where += bytes.size();
    return true;
  }

  int32_t ReplaceInStream(int64_t pos, uint32_t length, const Source& source) {
    if (pos < 0 || pos > size) return Raise("01"), 0;
    if (Refused()) return Raise("03"), 0;
    if (Refused()) return Raise("04"), 0;
    uint64_t start = static_cast<uint64_t>(pos) + length;
    std::string tail;
    if (reads && start < size && start < disk.size()) tail = disk.substr(start, size - start);
    tail.resize(std::max<uint64_t>(start, size > start ? size - start : 0));
    bool fits = int64_t{size} + source.count - length <= most;
    uint32_t count = source.count;
    int32_t code = Resize(fits ? count - length : most - size);
    if (!fits) {
      count = static_cast<uint32_t>(
          std::clamp<int64_t>(int64_t{most} - pos, 0, static_cast<int64_t>(count)));
    }
    bool written = true;
    if (code == 0 || !Other()) {
      auto where = static_cast<uint64_t>(pos);
      if (source.kind == kOwn)
        written = Write(&where, source.own.substr(0, count));
      else
        where += count;
      written = Write(&where, tail.substr(0, start)) && written;
    }
    if (code != 0 || !written) return Raise(fits ? "05" : "06"), 0;
    if (!fits) {
      auto region = static_cast<uint32_t>(
          std::min<uint64_t>({uint64_t{size} - count - static_cast<uint64_t>(pos), count, start}));
      Cut(tail.data(), start - region, tail.size(), region);
    }
    return static_cast<int32_t>(source.count - length);
  }
};

}  // namespace tavrix_test
