// Trials that hold the scanner against its model: tables, texts and calls out of random numbers. A
// call at which the model stops is not made.
#pragma once

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "quern/cerr.h"
#include "quern/cscan.h"
#include "tests/support/scan_model.h"
#include "tests/support/trail.h"
#include "tests/support/trial.h"

namespace tavrix_test {

inline constexpr char kScanConstants[][5] = {"ab", "AB", "a",  "B1",   "Ab",
                                             "",   "A1", "az", "11ab", "zz__"};

// A match function of a caller's own.
inline quern::ScanToken* ForwardMatch(int32_t id) { return quern::ScanSymbol(id); }

// Makes a table, a text and a sequence of calls.
class ScannerTrial {
 public:
  ScannerTrial(Choices& choices, bool tells) : source_(choices), tells_(tells) {}

  // What was different, with all that led to it when the trial tells; empty when nothing was.
  std::string Run() {
    MakeTables();
    MakeText();
    Begin();
    const uint32_t most = OneIn(8) ? 40 : 6;  // few calls on most tables, many on some
    for (int calls = 0; difference_.empty() && started_ && calls < 60 && source_.More(); ++calls) {
      if (Below(most) == 0) break;
      Call();
    }
    if (quern::CurrentScanner &&
        quern::ScanClass(reinterpret_cast<uintptr_t>(quern::CurrentScanner)) != 0)
      Differ("ScanClass");
    if (quern::CurrentScanner) Differ("CurrentScanner");
    return difference_.empty() ? difference_ : told_ + "different: " + difference_;
  }

 private:
  using Model = ScanModel;
  using Seen = ScanModel::Seen;
  using State = ScanModel::State;

  uint32_t Below(uint32_t n) { return source_.Below(n); }
  bool OneIn(uint32_t n) { return Below(n) == n - 1; }  // never, where the source has run dry
  char Letter() { return letters_[Below(static_cast<uint32_t>(letters_.size()))]; }
  std::string Letters(uint32_t most) {
    std::string text(Below(most + 1), 0);
    for (char& c : text) c = Letter();
    return text;
  }

  void Tell(const std::string& text) {
    if (tells_) told_ += text + "\n";
  }
  static std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (char c : text) {
      const char* digits = "0123456789abcdef";
      if (std::isprint(static_cast<unsigned char>(c)) && c != '\\')
        quoted += c;
      else
        (quoted += "\\x") += {digits[c >> 4 & 15], digits[c & 15]};
    }
    return quoted + "\"";
  }

  // --- what a trial begins with

  uint32_t MakeMask() {
    static constexpr uint32_t kMasks[] = {0x80, 0x40, 0x20, 0x10, 0x08, 0x04,
                                          0x02, 0x01, 0xC0, 0x84, 0x48, 0xFF};
    uint32_t mask = kMasks[Below(12)];
    if (OneIn(3)) mask |= kMasks[Below(12)];
    return mask << 24;
  }

  void MakePattern(Model::Def& def) {
    const uint32_t kind = def.flags & 0xFF;
    const bool ranges = kind == 4 || kind == 20 || kind == 36;
    if (OneIn(12)) {
      def.constant = true;
      def.text = kScanConstants[Below(std::size(kScanConstants))];
    } else {
      def.text = Letters(ranges ? 2 : 3);
      if (def.text.empty() && !OneIn(8)) def.text = Letter();
      if (ranges) {
        for (size_t i = 0; i < def.text.size(); i += 2) def.text.insert(i + 1, 1, Letter());
        for (size_t i = 0; i < def.text.size(); i += 2)
          if (def.text[i] > def.text[i + 1] && !OneIn(8)) std::swap(def.text[i], def.text[i + 1]);
      }
    }
    if (ranges && rough_ && OneIn(4) && !def.constant) def.text += Letter();
    const uint32_t size = static_cast<uint32_t>(def.text.size());
    if (OneIn(3)) def.length = OneIn(3) ? Below(size + 1) : size;
    if (ranges && !rough_) def.length &= ~1u;
    // Folded texts and those that errors show need a terminator.
    const bool plain = (kind >= 1 && kind <= 3) || (kind >= 17 && kind <= 20);
    def.terminated = def.constant || def.length == 0 || !plain || OneIn(2);
  }

  void MakeDef(Model::Def& def) {
    static constexpr uint8_t kKinds[] = {1, 2, 3, 4, 17, 18, 19, 20, 33, 34, 35, 36, 3, 4, 20};
    uint32_t kind = kKinds[Below(15)];
    if (!kinds_.empty()) kind = kinds_[Below(static_cast<uint32_t>(kinds_.size()))];
    if (OneIn(12)) kind = 0;
    if (rough_ && OneIn(10)) kind = Below(64);
    def.flags = kind;
    if (masked_ && OneIn(2)) def.flags |= MakeMask();
    if (rough_ && OneIn(8)) def.flags |= 1u << (8 + Below(16));
    def.value = 0x1000 + Below(200);
    MakePattern(def);
    if (rough_ && OneIn(16)) def.null = true;
  }

  void MakeTable(Model::Table& table) {
    masked_ = OneIn(2);
    rough_ = OneIn(8);
    kinds_.clear();
    if (OneIn(4))
      kinds_ = OneIn(2) ? std::string("\x03\x14\x23\x24") : std::string("\x01\x02\x21\x22");
    const uint32_t size = 1 + Below(OneIn(3) ? 12 : 4);
    int32_t id = 1 + static_cast<int32_t>(Below(2));
    while (table.size() < size) {
      Model::Def def;
      MakeDef(def);
      def.id = id;
      table.push_back(def);
      if (OneIn(2)) id += 1 + static_cast<int32_t>(OneIn(6));
      if (OneIn(16) || id > 6) id = 1 + static_cast<int32_t>(Below(6));
      if (OneIn(24)) id = -id;
      if (id < 0 && OneIn(2)) id = -id;
    }
    table.emplace_back();
    table.back().null = true;
    table.back().value = 0x2000 + Below(200);
  }

  void MakeTables() {
    static const std::string kLetters[] = {
        "ab", "abAB", "aB1_", std::string("aZ[z\x80\xFF\0@\xC0", 9), "\r\nab ", "azAZ09"};
    letters_ = kLetters[Below(6)];
    model_.tables.resize(OneIn(4) ? 2 : 1);
    for (Model::Table& table : model_.tables) {
      MakeTable(table);
      Build(table);
    }
  }

  // Pattern and table lie in blocks of exactly their size.
  void Build(const Model::Table& table) {
    defs_.emplace_back(new quern::ScanDef[table.size()]);
    for (size_t row = 0; row < table.size(); ++row) {
      const Model::Def& def = table[row];
      const char* text = nullptr;
      if (def.constant) {
        for (const char* constant : kScanConstants)
          if (def.text == constant) text = constant;
      } else if (!def.null) {
        char* copy = new char[def.text.size() + def.terminated];
        std::memcpy(copy, def.text.data(), def.text.size());
        if (def.terminated) copy[def.text.size()] = '\0';
        patterns_.emplace_back(copy);
        text = copy;
      }
      if (def.null) text = nullptr;
      defs_.back()[row] = {text, def.id, def.flags, def.length, def.value};
      if (!tells_) continue;
      const std::string told = "record " + std::to_string(defs_.size() - 1) + "." +
                               std::to_string(row) + ": " + (def.null ? "null" : Quoted(def.text)) +
                               (def.constant ? " constant" : "") + Named(" id", def.id);
      Tell(told + Named(" flags", def.flags) + Named(" length", def.length) +
           Named(" value", static_cast<int64_t>(def.value)));
    }
  }

  void MakeText() {
    const uint32_t pieces = Below(OneIn(4) ? 16 : 7);
    std::string text;
    for (uint32_t i = 0; i < pieces; ++i) {
      const Model::Table& table = model_.tables[0];
      const Model::Def& def = table[Below(static_cast<uint32_t>(table.size()))];
      if (OneIn(3)) {
        text += Letters(3);
      } else {
        std::string piece = def.text;
        for (char& c : piece) c = OneIn(5) ? UpperByte(c) : c;
        text += piece;
      }
    }
    model_.streamed = OneIn(2);
    size_t most = text.size();
    if (model_.streamed) {
      const uint32_t longest = 1 + Below(6);
      most = 0;
      for (size_t at = 0, size; at < text.size(); at += size) {
        size = std::min<size_t>(1 + Below(longest), text.size() - at);
        model_.blocks.push_back(text.substr(at, size));
        most = std::max(most, size);
      }
      text.clear();
    }
    model_.blocks.push_back(text);
    text_.reset(new char[most]);
    for (const std::string& block : model_.blocks) Tell("text " + Quoted(block));
    refilled_ = this;
    Fill();
  }

  // The block of the library. Behind it stand bytes of the blocks in front of it.
  uint32_t Fill() {
    const std::string& block = model_.blocks[filled_];
    std::memcpy(text_.get(), block.data(), block.size());
    return static_cast<uint32_t>(block.size());
  }
  static uint32_t Refill() {
    refilled_->filled_ += refilled_->filled_ + 1 < refilled_->model_.blocks.size();
    return refilled_->Fill();
  }

  // The record that the library's tokens lie in: it is what the end of a text gives.
  static const quern::ScanToken& StaticRecord() {
    static const quern::ScanToken* const record = [] {
      quern::ScanDef table[] = {{"a", 1, quern::SCAN_STRING, 0, 0}, {}};
      quern::Scanner* scanner = quern::ScanText("", 0, table);
      const quern::ScanToken* end = quern::ScanGet(quern::kScanEnd);
      quern::ScanClass(reinterpret_cast<uintptr_t>(scanner));
      return end;
    }();
    return *record;
  }

  void Begin() {
    model_.now.tokens[Model::kStatic] = Token(StaticRecord());  // keeps what it held
    own_ = {nullptr, 0, 0x55555555, 0, 0};
    model_.now.tokens[Model::kOwn] = Token(own_);
    try {
      started_ = model_.Define(0, 0) == 0;
      if (!started_) model_.Raise(3, false);
    } catch (Model::Stop) {
      started_ = false;
      return;
    }
    const quern::Scanner* scanner =
        quern::ScanText(text_.get(), static_cast<uint32_t>(model_.Size()), defs_[0].get());
    if ((scanner != nullptr) != started_ || !quern::CurrentScanner) return Differ("ScanText");
    if (!started_) {
      const Seen real = Real();
      if (real.trail != model_.now.trail || real.last != model_.now.last) Differ("the errors");
      return;
    }
    model_.Rewind();
    if (model_.streamed) quern::CurrentScanner->header.flags |= quern::SCAN_STREAMED;
    quern::CurrentScanner->cbfRefill = Refill;
    CompareTables();
    Compare();
    if (OneIn(8)) quern::CurrentScanner->cbfMatch = ForwardMatch;
  }

  // --- the calls

  int32_t Id() {
    static constexpr int32_t kOdd[] = {0,    -1,   INT32_MIN, 7,    8,    9000, 9001, 9002,
                                       9003, 9003, 9004,      9005, 9006, 9007, 9008, INT32_MAX};
    if (OneIn(4)) return kOdd[Below(16)];
    if (OneIn(4)) return 1 + static_cast<int32_t>(Below(6));
    const Model::Table& table = model_.tables[model_.now.table];
    return table[Below(static_cast<uint32_t>(table.size()) - 1)].id;
  }

  std::string Named(const char* name, int64_t argument) const {
    return tells_ ? name + (" " + std::to_string(argument)) : std::string();
  }

  // Has the model do it, and the library where the model says that it comes back.
  template <class Wanted, class Got>
  void Both(const std::string& name, Wanted wanted, Got got) {
    const State before = model_.now;
    model_.now.Clear();
    decltype(wanted()) expected{};
    try {
      expected = wanted();
    } catch (Model::Stop) {
      model_.now = before;
      return;
    }
    Tell(name);
    if (!Same(expected, got())) Differ("the result");
    Compare();
  }

  template <class Wanted, class Got>
  void BothFor(const char* name, Wanted wanted, Got got) {
    const int32_t id = Id();
    Both(
        Named(name, id), [&] { return (model_.*wanted)(id); }, [&] { return got(id); });
  }

  void FirstOf() {
    std::vector<int32_t> ids(Below(4));
    for (int32_t& id : ids) {
      do id = Id();
      while (id <= 0);
    }
    static constexpr uint32_t kEnds[] = {0,          0,          0x80000000, 0x81000000,
                                         0x81000000, 0x82000000, 0x82000000, 0x83000000};
    ids.push_back(static_cast<int32_t>(kEnds[Below(8)]));
    std::vector<int32_t> given = ids;
    const bool listed = OneIn(2);
    std::string name = "ScanFirstOf";
    for (int32_t id : ids) name += Named("", id);
    Both(
        name, [&] { return model_.FirstOf(ids); },
        [&] {
          if (listed) {
            quern::ScanToken* token = quern::ScanFirstOfList(given.data());
            if (given != ids) Differ("the list");
            return token;
          }
          given.resize(4);  // nothing behind the end is looked at
          return quern::ScanFirstOf(given[0], given[1], given[2], given[3]);
        });
  }

  void Define() {
    const int which = OneIn(16) ? -1 : static_cast<int>(Below(static_cast<uint32_t>(defs_.size())));
    const uint32_t slots = OneIn(3) ? Below(10) : 0;
    const std::vector<Model::Table> before = model_.tables;
    bool stopped = true;
    Both(
        Named("ScanDefine", which) + Named("", slots),
        [&] {
          const int32_t result = model_.Define(which, slots);
          stopped = false;
          return result;
        },
        [&] { return quern::ScanDefine(which < 0 ? nullptr : defs_[which].get(), slots); });
    if (stopped)
      model_.tables = before;
    else
      CompareTables();
  }

  void Value() {
    static constexpr char kText[] = "abc\0de";
    const uint32_t length = Below(7), from = Below(3);
    const char* text = kText + std::min(from, 6 - length);
    if (OneIn(2)) {
      Both(
          Named("ScanAddValue", length), [&] { return model_.now.value.append(text, length), 0; },
          [&] {
            return quern::ScanAddValue(text, length) != quern::CurrentScanner->mbValue.pData;
          });
      return;
    }
    if (length <= model_.now.value.size() && OneIn(4)) text = nullptr;
    Both(
        Named("ScanSetValue", length), [&] { return model_.SetValue(text, length), 0; },
        [&] { return quern::ScanSetValue(text, length) != quern::CurrentScanner->mbValue.pData; });
  }

  // What callers do by themselves.
  void Fiddle() {
    State& now = model_.now;
    quern::Scanner* scanner = quern::CurrentScanner;
    switch (Below(6)) {
      case 0: {
        const uint32_t bits = 1u << (16 + Below(16));
        now.mode = OneIn(2) ? now.mode ^ bits : bits;
        Tell(Named("mode", now.mode));
        scanner->nMode = now.mode;
        return;
      }
      case 1:
        now.position = Below(static_cast<uint32_t>(model_.Size()) + 2);
        Tell(Named("position", now.position));
        scanner->pPosition = text_.get() + now.position;
        Both(
            "ScanGet 9007", [&] { return model_.Get(9007); }, [] { return quern::ScanGet(9007); });
        return;
      case 2:
        Tell("pending null");
        now.pending = {};
        quern::ScanPending = nullptr;
        return;
      default:
        own_ = {text_.get(), static_cast<int32_t>(Below(4)), 0x55555555, Below(OneIn(4) ? 30 : 4),
                Below(100)};
        Tell(Named("pending own: id", own_.nId) + Named(", length", own_.nLength));
        now.tokens[Model::kOwn] = Token(own_);
        now.pending = {Model::kOwn};
        quern::ScanPending = &own_;
    }
  }

  void Call() {
    const uint32_t call = Below(24);
    if (call == 0) return Define();
    if (call <= 2) return BothFor("ScanMatch", &Model::Match, quern::ScanMatch);
    if (call <= 4) return BothFor("ScanRun", &Model::Run, quern::ScanRun);
    if (call <= 6) return BothFor("ScanSkipTo", &Model::SkipTo, quern::ScanSkipTo);
    if (call <= 9) return FirstOf();
    if (call <= 11) return BothFor("ScanFind", &Model::Find, quern::ScanFind);
    if (call <= 13) return BothFor("ScanSymbol", &Model::Symbol, quern::ScanSymbol);
    if (call == 14) return BothFor("ScanDefFind", &Model::DefFind, quern::ScanDefFind);
    if (call <= 17) return Fiddle();
    if (call <= 21) return BothFor("ScanGet", &Model::Get, quern::ScanGet);
    if (call == 22) {
      const int32_t delta = static_cast<int32_t>(Below(9)) - 4;
      return Both(
          Named("ScanAdvance", delta), [&] { return model_.Advance(delta), 0; },
          [&] { return quern::ScanAdvance(delta), false; });
    }
    const uint32_t rare = Below(4);
    if (rare == 0) return Value();
    if (rare == 1)
      return Both(
          "ScanRewind", [&] { return model_.Rewind(); }, [] { return quern::ScanRewind(); });
    if (rare == 2)
      return Both(
          "ScanSelect", [&] { return model_.now.pending = {}, model_.now.status = 0, 0; },
          [] { return quern::ScanSelect(quern::CurrentScanner) != quern::CurrentScanner; });
    if (model_.now.pending.number >= 0) return;  // it searches behind no token
    Both(
        "ScanFirstSymbol", [&] { return model_.FirstSymbol(); },
        [] { return quern::ScanFirstSymbol(); });
  }

  // --- comparisons

  void Differ(const std::string& what) {
    difference_ += what + "; model: " + Shown(model_.now) + "; library: " + Shown(Real()) + "; ";
  }

  static std::string Shown(const Seen& seen) {
    std::string shown = "value " + Quoted(seen.value) + " trail " + seen.trail;
    const auto add = [&shown](const char* name, std::initializer_list<int64_t> numbers) {
      shown += name;
      for (int64_t number : numbers) shown += " " + std::to_string(number);
    };
    add(" position", {seen.position, seen.line, seen.line_start, seen.column});
    add(" mode", {seen.mode, seen.table, seen.highest, seen.value_length});
    add(" status", {seen.status, seen.last, seen.pending.number});
    for (const Model::Token& token : seen.tokens)
      add(" token", {token.start, token.id, token.length, static_cast<int64_t>(token.value)});
    return shown;
  }

  long At(const char* pointer) const {
    return pointer ? static_cast<long>(reinterpret_cast<uintptr_t>(pointer) -
                                       reinterpret_cast<uintptr_t>(text_.get()))
                   : Model::kNowhere;
  }

  Model::Token Token(const quern::ScanToken& token) const {
    return {At(token.pStart), token.nId, token.nReserved, token.nLength, token.nValue};
  }

  bool Same(Model::Record record, const quern::ScanToken* token) const {
    const quern::ScanToken* records[] = {nullptr, &StaticRecord(), &own_};
    return token == records[record.number + 1];
  }
  bool Same(Model::Place place, const quern::ScanDef* def) const {
    return def == (place.table < 0 ? nullptr : &defs_[place.table][place.row]);
  }
  bool Same(Model::Offset offset, const char* place) const { return offset.at == At(place); }
  bool Same(int32_t model, int32_t result) const { return model == result; }

  // What the library shows of its state. The errors are taken away.
  Seen Real() {
    Seen real;
    real.last = quern::ErrLast;
    if (quern::ErrCurrent && quern::ErrCurrent->nCount != 0)
      real.trail = model_.now.trail.substr(0, 1) + ClearedTrail();
    const quern::Scanner* scanner = quern::CurrentScanner;
    if (!scanner) return real;
    real.position = At(scanner->pPosition);
    real.line_start = At(scanner->pLine);
    real.line = scanner->nLine;
    real.column = scanner->nColumn;
    real.mode = scanner->nMode;
    real.value.assign(scanner->mbValue.pData ? scanner->mbValue.pData : "", scanner->mbValue.nSize);
    real.value_length = scanner->nValue;
    for (int table = 0; table < static_cast<int>(defs_.size()); ++table)
      if (scanner->pTable == defs_[table].get()) real.table = table;
    real.highest = scanner->nHighest;
    real.status = quern::ScanStatus;
    real.pending = {!quern::ScanPending ? -1 : quern::ScanPending == &own_ ? Model::kOwn : 0};
    real.tokens[Model::kStatic] = Token(StaticRecord());
    real.tokens[Model::kOwn] = Token(own_);
    return real;
  }

  void Compare() {
    const quern::MemBuf& source = quern::CurrentScanner->mbSource;
    const Seen real = Real();
    if (!(real == model_.now)) Differ("the state, errors " + real.trail);
    if (source.pData != text_.get() || source.nSize != model_.Text().size()) Differ("the text");
  }

  void CompareTables() {
    for (size_t number = 0; number < defs_.size(); ++number) {
      const Model::Table& table = model_.tables[number];
      for (size_t row = 0; row < table.size(); ++row) {
        const Model::Def& def = table[row];
        const quern::ScanDef& real = defs_[number][row];
        if (real.fFlags != def.flags || real.nLength != def.length || real.nId != def.id ||
            real.nValue != def.value || (real.pText == nullptr) != def.null ||
            (!def.null && std::memcmp(real.pText, def.text.data(), def.text.size()) != 0))
          Differ("record " + std::to_string(number) + "." + std::to_string(row));
      }
    }
  }

  Choices& source_;
  const bool tells_;
  std::string told_, difference_;
  ScanModel model_;
  std::string letters_, kinds_;
  bool masked_ = false, rough_ = false, started_ = false;
  std::vector<std::unique_ptr<char[]>> patterns_;
  std::vector<std::unique_ptr<quern::ScanDef[]>> defs_;
  std::unique_ptr<char[]> text_;
  size_t filled_ = 0;  // the library's block
  static inline ScannerTrial* refilled_;
  quern::ScanToken own_;
};

inline std::string ScanTrial(Choices& choices) {
  Choices again = choices;
  if (ScannerTrial(choices, false).Run().empty()) return "";
  const std::string told = ScannerTrial(again, true).Run();
  return told.empty() ? "different only the first time" : told;
}

}  // namespace tavrix_test
