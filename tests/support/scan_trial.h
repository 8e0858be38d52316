// A scanner with tables, texts and calls of all kinds: compiled and interpreted it does the same.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/scan_model.h"
#include "tests/support/trail.h"
#include "tests/support/trial.h"

namespace tavrix_test {

// Makes a scanner and its calls, and keeps a trace of what each leaves.
class ScanPlay {
 public:
  ScanPlay(Choices& choices, bool interpreted) : choices_(choices), interpreted_(interpreted) {
    letters_ = choices.One<std::string>(
        {"ab", "abAB", "aB1_", {"aZ[z\x80\xFF\0@\xC0", 9}, "\r\nab ", "azAZ09"});
    const bool two = choices.OneIn(4);
    MakeTable();
    if (two) MakeTable();
    MakeText();
    quern::ScanRecord = {};
    scanner_ = quern::ScanSelect(nullptr);
    scanner_->mbSource.pData = text_.data();
    if (blocks_.size() > 2) scanner_->header.flags |= quern::SCAN_STREAMED;
    if (interpreted) scanner_->cbfMatch = Interpret;
    scanner_->cbfRefill = [] { return playing_->Refill(); };
    playing_ = this;
    scanner_->mbSource.nSize = Refill();
    Trace("ScanDefine", 0, quern::ScanDefine(tables_[0].data(), 0));
    quern::ScanRewind();
  }
  ~ScanPlay() { quern::ScanClass(reinterpret_cast<uintptr_t>(scanner_)); }
  ScanPlay(const ScanPlay&) = delete;

  // The traces of at most `most` calls. Of an interpreted scanner, which `most` becomes: of those
  // at which the interpreter did not stop.
  std::string Play(int& most) {
    const uint32_t calls = choices_.OneIn(8) ? 40 : 6;  // few on most tables, many on some
    for (int call = 0; call < most && choices_.More() && choices_.Below(calls) != 0; ++call) {
      const std::string before = trace_;
      interpreter_budget = 2000;
      Call();
      if (interpreter_budget < 0) return most = call, before;
    }
    return trace_;
  }

 private:
  uint32_t Below(size_t n) { return choices_.Below(static_cast<uint32_t>(n)); }
  bool OneIn(uint32_t n) { return choices_.OneIn(n); }
  char Letter() { return letters_[Below(letters_.size())]; }

  // A text in a block of exactly its size, or with a terminator.
  const char* Keep(const std::string& text, bool terminated) {
    kept_.emplace_back(text.begin(), text.end());
    if (terminated) kept_.back().push_back('\0');
    return kept_.back().data();
  }

  void MakeDef(quern::ScanDef* def, const std::string& kinds, bool masked, bool rough) {
    uint32_t kind = static_cast<uint8_t>(kinds[Below(kinds.size())]);
    if (OneIn(12)) kind = 0;
    if (rough && OneIn(10)) kind = Below(64);
    std::string text = choices_.Text(letters_, 3);
    if (text.empty() && !OneIn(8)) text = Letter();
    if (kind % 4 == 0 && kind != 0) {  // ranges
      if (text.size() % 2 != 0 && !(rough && OneIn(4))) text += Letter();
      for (size_t i = 0; i + 1 < text.size(); i += 2)
        if (text[i] > text[i + 1] && !OneIn(8)) std::swap(text[i], text[i + 1]);
    }
    if (OneIn(3)) def->nLength = OneIn(3) ? Below(text.size() + 1) : Below(2) * text.size();
    // Texts that are folded, shown or measured need a terminator.
    const bool bare = def->nLength != 0 && kind % 16 <= 3 && kind % 16 != 0 && kind < 32;
    def->pText = Keep(text, !bare || OneIn(2));
    if (OneIn(12)) def->pText = choices_.One({"ab", "AB", "a", "B1", "az"}), def->nLength = 0;
    if (rough && OneIn(16)) def->pText = nullptr;
    def->fFlags = kind;
    for (bool more = masked && OneIn(2); more; more = OneIn(3))
      def->fFlags |= choices_.One({0x80u, 0x40u, 0x20u, 0x10u, 8u, 4u, 2u, 1u, 0x84u, 0xC0u}) << 24;
    if (rough && OneIn(8)) def->fFlags |= 0x100u << Below(16);
    def->nValue = 0x1000 + kept_.size();
    pieces_.push_back(text);
  }

  void MakeTable() {
    const bool masked = OneIn(2), rough = OneIn(8);
    const std::string kinds = choices_.One<std::string>(
        {"\1\2\3\4\x11\x12\x13\x14\x21\x22\x23\x24\3\4\x14", "\3\x14\x23\x24", "\1\2\x21\x22"});
    std::vector<quern::ScanDef> table(2 + Below(OneIn(3) ? 12 : 4));
    int32_t id = 1 + static_cast<int32_t>(Below(2));
    for (size_t row = 0; row + 1 < table.size(); ++row) {
      MakeDef(&table[row], kinds, masked, rough);
      table[row].nId = OneIn(24) ? -id : id;
      if (OneIn(2)) id += 1 + OneIn(6);
      if (OneIn(16) || id > 6) id = 1 + static_cast<int32_t>(Below(6));
    }
    table.back().nValue = 0x2000;
    tables_.push_back(table);
  }

  // One text, or blocks that follow each other; an empty block is the end of either.
  void MakeText() {
    std::string text;
    for (uint32_t pieces = Below(OneIn(4) ? 16 : 7); pieces > 0; --pieces) {
      std::string piece = OneIn(3) ? choices_.Text(letters_, 3) : pieces_[Below(pieces_.size())];
      for (char& c : piece) c = OneIn(5) ? UpperByte(c) : c;
      text += piece;
    }
    const size_t longest = OneIn(2) ? 1 + Below(6) : 100;
    size_t most = 1;
    for (size_t at = 0; at < text.size(); at += blocks_.back().size()) {
      blocks_.push_back(text.substr(at, longest == 100 ? 100 : 1 + Below(longest)));
      most = std::max(most, blocks_.back().size());
    }
    blocks_.emplace_back();
    text_.resize(most);
  }

  uint32_t Refill() {
    const std::string& block = blocks_[filled_];
    filled_ += filled_ + 1 < blocks_.size();
    std::copy(block.begin(), block.end(), text_.begin());
    return static_cast<uint32_t>(block.size());
  }

  // Of the table, of the status, or any.
  int32_t Id() {
    if (OneIn(4))
      return choices_.One({0, -1, INT32_MIN, 7, 8, 9000, 9001, 9002, 9003, 9003, 9004, 9006, 9007,
                           9008, INT32_MAX});
    return OneIn(4) ? 1 + static_cast<int32_t>(Below(6))
                    : tables_[0][Below(tables_[0].size() - 1)].nId;
  }

  void FirstOf() {
    int32_t ids[4] = {1 + static_cast<int32_t>(Below(7))};  // where the interpreter can stop
    const uint32_t count = Below(3) + 1;
    for (uint32_t i = 1; i < count; ++i) ids[i] = std::max(Id(), 1);
    ids[count] = static_cast<int32_t>(choices_.One({0u, 0x81000000, 0x82000000, 0x83000000}));
    Trace("ScanFirstOfList", ids[0], Name(quern::ScanFirstOfList(ids)));
  }

  // What callers do by themselves.
  void Fiddle() {
    const uint32_t what = Below(4);
    if (what == 0) scanner_->nMode = (OneIn(2) ? scanner_->nMode : 0) ^ 0x10000u << Below(16);
    if (what == 1) scanner_->pPosition = text_.data() + Below(scanner_->mbSource.nSize + 2);
    if (what >= 2) {
      own_ = {text_.data(), static_cast<int32_t>(Below(4)), 5, Below(OneIn(4) ? 30 : 4), Below(9)};
      quern::ScanPending = what == 2 ? nullptr : &own_;
    }
    Trace("ScanGet", 9007 - what % 2, Name(quern::ScanGet(9007 - what % 2)));
  }

  void Call() {
    const int32_t id = Id();
    quern::ErrLast = 0;
    const uint32_t call = Below(20), slots = OneIn(3) ? Below(10) : 0;
    if (call == 0)
      return Trace("ScanDefine", slots, quern::ScanDefine(tables_.back().data(), slots));
    if (call <= 2) return Trace("ScanMatch", id, Name(quern::ScanMatch(id)));
    if (call <= 4) return Trace("ScanRun", id, Name(quern::ScanRun(id)));
    if (call <= 6) return Trace("ScanSkipTo", id, Name(quern::ScanSkipTo(id)));
    if (call <= 8) return FirstOf();
    if (call <= 10) return Trace("ScanFind", id, At(quern::ScanFind(id)));
    if (call <= 12)
      return Trace("ScanSymbol", id, Name((interpreted_ ? Interpret : quern::ScanSymbol)(id)));
    if (call <= 14) return Fiddle();
    if (call == 15) return Trace("ScanRewind", 0, quern::ScanRewind());
    Trace("ScanGet", id, Name(quern::ScanGet(id)));
  }

  int64_t At(const char* place) const { return place ? place - text_.data() : -1; }
  int64_t Name(const quern::ScanToken* token) const {
    return !token ? 0 : token == &own_ ? 1 : token == &quern::ScanRecord ? 2 : 3;
  }

  void Trace(const char* name, int64_t argument, int64_t result) {
    const quern::Scanner& now = *scanner_;
    trace_ += name;
    for (int64_t number :
         {argument, result, At(now.pPosition), At(now.pLine), int64_t{now.nLine},
          int64_t{now.nColumn}, int64_t{now.nMode}, int64_t{now.mbSource.nSize},
          int64_t{quern::ScanStatus}, int64_t{quern::ErrLast}, Name(quern::ScanPending)})
      trace_ += " " + std::to_string(number);
    for (const quern::ScanToken& token : {quern::ScanRecord, own_})
      for (int64_t number : {At(token.pStart), int64_t{token.nId}, int64_t{token.nReserved},
                             int64_t{token.nLength}, static_cast<int64_t>(token.nValue)})
        trace_ += " " + std::to_string(number);
    if (now.mbValue.pData) trace_ += " " + std::string(now.mbValue.pData, now.mbValue.nSize);
    trace_ += " " + ClearedTrail() + "\n";
  }

  Choices& choices_;
  const bool interpreted_;
  std::string letters_, trace_;
  std::vector<std::vector<char>> kept_;
  std::vector<std::vector<quern::ScanDef>> tables_;
  std::vector<std::string> pieces_, blocks_;
  std::vector<char> text_;
  size_t filled_ = 0;  // how many blocks were
  quern::Scanner* scanner_;
  quern::ScanToken own_ = {};
  static inline ScanPlay* playing_;
};

inline std::string ScanTrial(Choices& choices) {
  Choices again = choices;
  int calls = 60;
  const std::string interpreted = ScanPlay(choices, true).Play(calls);
  const std::string compiled = ScanPlay(again, false).Play(calls);
  return compiled == interpreted ? "" : "interpreted:\n" + interpreted + "compiled:\n" + compiled;
}

}  // namespace tavrix_test
