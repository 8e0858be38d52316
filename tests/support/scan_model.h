// The rules of the scanner spelled out one by one over a text in memory, or over one that is
// refilled block by block.
//
// The model stops at a call that would not return, that would end the process, or whose errors
// would not fit on the stack.
#pragma once

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "quern/cerr.h"
#include "quern/cscan.h"
#include "tests/support/trail.h"

namespace tavrix_test {

inline char UpperByte(char c) {
  return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

struct ScanModel {
  enum class Stop { endless, fatal, overflow };  // thrown

  struct Def {
    bool null = false;
    bool constant = false;   // its text cannot be written
    bool terminated = true;  // by a zero byte that is not part of the text here
    std::string text;
    int32_t id = 0;
    uint32_t flags = 0;
    uint32_t length = 0;
    uintptr_t value = 0;
  };
  using Table = std::vector<Def>;  // the last one has the id 0

  struct Place {  // of a record; table -1: none
    int table = -1;
    size_t row = 0;
  };
  struct Record {  // of a token; -1: none
    int number = -1;
    bool operator==(const Record&) const = default;
  };
  static constexpr int kStatic = 0, kOwn = 1, kPrivate = 2;

  static constexpr long kNowhere = -1;
  struct Offset {  // in the text
    long at = kNowhere;
  };

  struct Token {
    long start = kNowhere;
    int32_t id = 0;
    uint32_t reserved = 0;
    uint32_t length = 0;
    uintptr_t value = 0;
    bool operator==(const Token&) const = default;
  };

  // What calls change beside the tables, as far as the library shows it.
  struct Seen {
    long position = 0, line_start = 0;
    uint32_t line = 0, column = 0, mode = 0;
    std::string value;
    uint32_t value_length = 0;
    int table = -1;
    int32_t highest = 0;
    Record pending;
    int32_t status = 0;
    Token tokens[2];
    std::string trail;  // of the errors since Clear, a separator in front of each
    int32_t last = 0;
    bool operator==(const Seen&) const = default;
  };
  struct State : Seen {
    Token of_search;
    std::vector<Place> index;
    uint32_t entries = 0;
    size_t block = 0;  // the one that is the text

    Token& Of(Record record) {
      return record.number == kPrivate ? of_search : tokens[record.number];
    }
    void Clear() { trail.clear(), entries = 0, last = 0; }
  };

  std::vector<std::string> blocks;  // the last one is empty
  bool streamed = false;            // else there is one block
  std::vector<Table> tables;
  State now;

  const std::string& Text() const { return blocks[now.block]; }
  long Size() const { return static_cast<long>(Text().size()); }
  void Refill() { now.block += now.block + 1 < blocks.size(); }
  const Def& At(const Place& place) const { return tables[place.table][place.row]; }

  // --- errors

  int32_t Raise(int32_t code, bool with_text) {
    now.entries += with_text ? 2 : 1;
    if (now.entries >= quern::kErrEntries) throw Stop::overflow;
    now.trail.insert(0, (with_text ? ":0" : ".0") + std::to_string(code));
    now.last = code;
    return -code;
  }

  // --- the table

  static uint32_t StringLength(const Def& def) {
    return static_cast<uint32_t>(std::min(def.text.find('\0'), def.text.size()));
  }

  int32_t Define(int which, uint32_t slots) {
    if (which < 0) return Raise(1, false);
    now.table = which;
    Table& table = tables[which];
    uint32_t previous = 0;
    int32_t highest = 0;
    for (size_t row = 0; table[row].id != 0; ++row) {
      Def& def = table[row];
      if (def.null) {
        Raise(2, true);
        continue;
      }
      const uint32_t length = def.length != 0 ? def.length : StringLength(def);
      if (def.flags > 0x00FFFFFF) now.mode = 0x10000;
      switch (def.flags & 0xFF) {
        case 0:
          if (previous == 0) Raise(3, true);
          def.flags = previous;
          break;
        case 1:
        case 2:
          def.flags |= 16;
          previous = def.flags & 0xFF;
          break;
        case 3:
          def.flags |= 16;
          previous = 0;
          break;
        case 4:
          if (length % 2 != 0) Raise(2, true);
          def.flags |= 16;
          previous = 0;
          break;
        case 17:
        case 18:
        case 33:
        case 34:
          previous = def.flags & 0xFF;
          break;
        case 19:
        case 20:
        case 35:
        case 36:
          break;
        default:
          Raise(4, true);
      }
      if (def.flags & 32) {
        const auto end = def.text.begin() + StringLength(def);
        if (!def.constant) {
          std::transform(def.text.begin(), end, def.text.begin(), UpperByte);
        } else if (std::any_of(def.text.begin(), end, [](char c) { return UpperByte(c) != c; })) {
          Raise(4, true);
          now.last = 0;
        }
      }
      def.length = length;
      highest = std::max(highest, def.id);
    }
    if (highest == 0) return Raise(5, false);
    const uint32_t size = slots != 0 ? slots : static_cast<uint32_t>(highest) + 1;
    now.highest = static_cast<int32_t>(size - 1);
    now.index.assign(size, Place());
    size_t first = 0;
    for (size_t row = 0; table[row].id != 0; ++row) {
      if (table[row].id > now.highest) return Raise(7, false);
      if (table[row].id < 0) continue;
      Place& slot = now.index[table[row].id];
      if (slot.table < 0) {
        slot = {which, row};
        first = row;
      }
      if (table[row].flags > 0x00FFFFFF) table[first].flags |= 0x10000;
    }
    return 0;
  }

  Place DefFind(int32_t id) const {
    if (id < 0) return {};
    if (!now.index.empty() && id <= now.highest) return now.index[id];
    if (now.table < 0) return {};
    Place place{now.table, 0};
    while (At(place).id != id && At(place).id != 0) ++place.row;
    return place;
  }

  // --- matching

  // Whether the record's pattern stands at p, which is behind it then.
  bool Piece(const Def& def, bool folds, long& p) const {
    const uint32_t n = def.null ? 0 : def.length;
    for (uint32_t i = 0; i < n; ++i, ++p) {
      if (p >= Size()) return false;
      const char a = Text()[p], b = def.text[i];
      if (folds ? UpperByte(a) != UpperByte(b) : a != b) return false;
    }
    return true;
  }

  bool WordGoesOn(long p) const {
    if (p >= Size()) return false;
    const signed char c = static_cast<signed char>(Text()[p]);
    return c == '_' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || c >= 0x5A;
  }

  static bool IsMember(const Def& def, char byte) {
    const uint32_t n = def.null ? 0 : def.length;
    const auto within = [byte](char low, char high) {
      const signed char a = static_cast<signed char>(low), b = static_cast<signed char>(high);
      return a <= static_cast<signed char>(byte) && static_cast<signed char>(byte) <= b;
    };
    switch (def.flags & 0xFF) {
      case 19:
        for (uint32_t i = 0; i < n; ++i)
          if (byte == def.text[i]) return true;
        return false;
      case 35:
        return n > 0 && (byte == def.text[0] || byte == UpperByte(def.text[0]));
      case 20:
        for (uint32_t i = 0; i + 1 < n; i += 2)
          if (within(def.text[i], def.text[i + 1])) return true;
        return false;
      default:  // 36
        for (uint32_t i = 0; i + 1 < n; i += 2) {
          const char low = def.text[i], high = def.text[i + 1];
          if (within(low, high) || within(UpperByte(low), UpperByte(high))) return true;
        }
        return false;
    }
  }

  static void Continue(uint32_t& mode) {
    if (!(mode & 0x40000000)) mode = (mode & 0x7BFFFFFF) | 0x70000000;
  }

  Record Symbol(int32_t id) {
    if (id > now.highest) {
      Advance(0);
      if (now.status != id) return {};
      if (now.pending.number < 0) now.pending = {kStatic};
      Token& token = now.Of(now.pending);
      token.start = kNowhere;
      token.length = 0;
      token.id = now.status;
      return now.pending;
    }
    if (now.position >= Size()) {
      Advance(0);
      if (now.status != 0) return {};
    }
    if (id < 0) return {};
    const Place first = now.index[id];
    if (first.table < 0) return Raise(1, true), Record();
    const long start = now.position, end = Size();
    uint32_t mode = 0;
    if (At(first).flags & 0x10000)
      mode = now.mode | (start == now.line_start ? 0x8C000000 : 0x80000000);
    // The walk is at the same place, record and mode twice when it is longer than this.
    size_t rest = 2 * (Text().size() + 1) * tables[first.table].size();
    long p = start;
    Place at = first;
    bool accepted = false;
    while (!accepted && At(at).id == id && p < end) {
      if (rest-- == 0) throw Stop::endless;
      const Def& def = At(at);
      const uint32_t mask = def.flags & 0xFF000000, kind = def.flags & 0xFF;
      if (mask != 0 && !(mask & mode)) {
        ++at.row;
        continue;
      }
      switch (kind) {
        case 17:
        case 33:
          if (!Piece(def, kind == 33, p)) {
            p = start;
            ++at.row;
          } else if (mask == 0) {
            accepted = true;
          } else {
            Continue(mode);
            ++at.row;
          }
          break;
        case 18:
        case 34:
          if (Piece(def, kind == 34, p) && !WordGoesOn(p)) {
            accepted = true;
          } else {
            p = start;
            ++at.row;
          }
          break;
        case 19:
        case 20:
        case 35:
        case 36:
          if (IsMember(def, Text()[p])) {
            ++p;
            Continue(mode);
            at = first;
          } else {
            ++at.row;
          }
          break;
        default:
          throw Stop::fatal;
      }
    }
    if (p == start) return {};
    if (mode != 0) now.mode = mode & (id == 2 ? 0x1BFFFFFF : 0x13FFFFFF);
    if (now.pending.number < 0) now.pending = {kStatic};
    Token& token = now.Of(now.pending);
    token.start = start;
    token.id = id;
    token.length = static_cast<uint32_t>(p - start);
    token.value = At(at).value;
    return now.pending;
  }

  Record FirstSymbol() {
    const Table& table = tables[now.table];
    for (size_t row = 0; table[row].id != 0; ++row) {
      if (row > 0 && table[row].id == table[row - 1].id) continue;
      const Record found = Symbol(table[row].id);
      if (found.number >= 0) return found;
    }
    return {};
  }

  // --- stepping

  void Advance(int32_t delta) {
    now.position += delta;
    if (now.position < 0) {
      now.position = now.line_start = 0;
      now.line = 1;
      now.status = 9001;
    } else if (now.position >= Size() && streamed) {
      Refill();
      now.position = now.line_start = 0;
      if (Size() == 0) now.status = 9002;
    } else if (now.position >= Size()) {
      now.position = Size();
      now.status = 9002;
    } else {
      now.status = 0;
    }
  }

  void AdvanceOverPending() { Advance(static_cast<int32_t>(now.Of(now.pending).length)); }

  int32_t Rewind() {
    now.line_start = now.position = 0;
    now.line = 1;
    Advance(0);
    now.pending = {};
    return 0;
  }

  Record Get(int32_t id) {
    now.status = 0;
    switch (id) {
      case 9001:
        return {};
      case 9002:
        Advance(0);
        if (now.status != 9002) return {};
        now.tokens[kStatic] = Token();
        now.tokens[kStatic].id = 9002;
        return {kStatic};
      case 9004:
        if (now.pending.number >= 0)
          AdvanceOverPending();
        else
          Advance(1);
        now.pending = {};
        return {};
      case 9005:
        Advance(-1);
        now.pending = {};
        return {};
      case 9007:
        Advance(0);
        now.pending = {};
        return {};
      default:
        break;
    }
    if (now.pending.number >= 0) {
      AdvanceOverPending();
      if (now.Of(now.pending).id == 1) {
        now.line_start = now.position;
        now.column = 0;
        ++now.line;
      }
    }
    now.pending = {};
    if (now.status != 0 && now.status != id) return {};
    if (id == 9006) return {};
    now.pending = id == 9003 ? FirstSymbol() : Symbol(id);
    if (id == 9003 && now.pending.number < 0) now.pending = Get(9002);
    if (now.pending.number >= 0) now.status = now.Of(now.pending).id;
    return now.pending;
  }

  Record Match(int32_t id) {
    if (now.status == 9002) return {};
    now.pending = Symbol(id);
    now.status = now.pending.number >= 0 ? now.Of(now.pending).id : 0;
    return now.pending;
  }

  // Nothing, when a refill has put other bytes there.
  void Collect(long start, long end) {
    now.value.clear();
    if (start < end && end <= Size()) now.value = Text().substr(start, end - start);
  }

  Record Run(int32_t id) {
    if (id == 9003) Get(9003);
    if (now.status == id) {
      if (now.pending.number < 0 || now.status == 9002) return {};
      if (now.status == 1) {
        now.line_start = now.position;
        ++now.line;
      }
      const Record kept = now.pending;
      const long start = now.position;
      do AdvanceOverPending();
      while (Match(id).number >= 0);
      Collect(start, now.position);
      now.status = id;
      return now.pending = kept;
    }
    const long start = now.position;
    const Record token = Get(id);  // without one, begin and end leave the pending token
    Collect(start,
            token.number < 0 ? start : now.position - static_cast<long>(now.Of(token).length));
    return now.pending;
  }

  void StoreColumn() { now.column = static_cast<uint32_t>(now.position - now.line_start); }

  // More steps than any walk that ends can take.
  size_t Steps() const {
    size_t steps = 64;
    for (const std::string& block : blocks) steps += 4 * block.size();
    return steps;
  }

  Record SkipTo(int32_t id) {
    for (size_t rest = Steps(); now.status != 9002 && Get(id).number < 0; --rest) {
      if (rest == 0) throw Stop::endless;
      Get(9004);
    }
    if (now.status == 1) StoreColumn();
    return now.pending;
  }

  // `ids` ends with its terminator, which becomes 0.
  Record FirstOf(std::vector<int32_t>& ids) {
    const bool backward = ids.back() & 0x01000000, skips = ids.back() & 0x02000000;
    ids.back() = 0;
    if (backward && now.pending.number >= 0) Get(9005);
    for (size_t rest = Steps(); now.status != 9002; --rest) {
      if (rest == 0) throw Stop::endless;
      Record token;
      for (size_t i = 0; i + 1 < ids.size() && token.number < 0; ++i) token = Get(ids[i]);
      if (token.number >= 0 && !skips) {
        if (now.status == 1) StoreColumn();
        return token;
      }
      if (token.number < 0 && skips) return {};
      Get(backward ? 9005 : 9004);
    }
    return {};
  }

  Offset Find(int32_t id) {
    const long position = now.position;
    const Record pending = now.pending;
    if (pending.number >= 0) AdvanceOverPending();
    Offset result;
    while (now.status != 9002) {
      now.pending = {kPrivate};
      if (Symbol(id).number >= 0) {
        result = {now.position};
        break;
      }
      Advance(1);
    }
    if (id == 1) StoreColumn();
    now.position = position;
    now.pending = pending;
    return result;
  }

  // --- the value; `bytes` may be null where it is not longer than the value

  void SetValue(const char* bytes, uint32_t length) {
    if (bytes)
      now.value.assign(bytes, length);
    else
      now.value.resize(length);
    if (length == 0)
      now.value_length = 0;
    else if (bytes)
      now.value_length = static_cast<uint32_t>(std::strlen(bytes));
  }
};

}  // namespace tavrix_test
