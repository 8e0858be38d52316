// Messages of any bytes: tables, formats, texts and codes, read back as texts, in reports and in
// lines of the trace. Nothing is done that ends the process on purpose.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/csys.h"

namespace {

using namespace quern;

constexpr uintptr_t kFirstUserCode = 39;
constexpr size_t kLongestText = 600;          // bytes of a text of the input
constexpr int kLongestFormatted = 510;        // more ends the process
constexpr size_t kReport = 20 * 4096 + 4096;  // bytes, enough for every text of a full stack

FILE* stream;  // for the trace, writes into `line`
char line[2048];

void Check(bool truth) {
  if (!truth) abort();
}

struct Input {
  const uint8_t* at;
  const uint8_t* end;

  uint8_t Byte() { return at < end ? *at++ : 0; }
  uint16_t Half() { return static_cast<uint16_t>(Byte() << 8 | Byte()); }
  uint32_t Word() { return static_cast<uint32_t>(Half()) << 16 | Half(); }

  // The next text, up to a zero byte.
  std::string Text() {
    std::string text;
    while (uint8_t byte = text.size() < kLongestText ? Byte() : 0) text += static_cast<char>(byte);
    return text;
  }

  // The next text, with the bytes behind a '%' made a conversion, of a number or a text. The last
  // row of a table gets one number.
  std::string Format(bool lastRow) {
    std::string format;
    int conversions = lastRow ? 1 : 2;
    size_t most = lastRow ? kLongestFormatted - 16 : kLongestText;
    while (uint8_t byte = format.size() < most ? Byte() : 0) {
      format += static_cast<char>(byte);
      if (byte != '%') continue;
      uint8_t how = Byte();
      if (how == 0 || conversions == 0) {
        format += '%';
        continue;
      }
      --conversions;
      if (how & 8) format += '-';
      if (how & 16) format += std::to_string(lastRow ? 9 : Byte() * 2);
      if (how & 32) format += '.' + std::to_string(lastRow ? 9 : Byte() * 2);
      format += "dxcXiuos"[lastRow ? how % 7 : how % 8];
    }
    return format;
  }
};

// A table of messages, its last row included.
struct Table {
  std::deque<std::string> texts;
  std::vector<MessageRow> rows;

  explicit Table(Input* input) {
    for (int count = input->Byte() % 6; count >= 0; --count) {
      texts.push_back(input->Format(count == 0));
      uint32_t code = count == 0 ? 0 : kFirstUserCode + input->Byte();
      rows.push_back({code, texts.back().c_str(), input->Half() & ~ERR_FATAL});
    }
  }
};

const MessageRow& RowOf(const MessageRow* table, uintptr_t code) {
  while (table->code != code && table->code != 0) ++table;
  return *table;
}

// The format that ErrFormat takes for a code; null when it takes the code for an address.
const char* FormatOf(uintptr_t code) {
  if (ErrCurrent->nPending & ERR_LIBRARY)
    return code < kFirstUserCode ? RowOf(MessageTable, code).text : nullptr;
  const MessageRow* table = code <= ErrCurrent->nHighest ? ErrCurrent->pTable : nullptr;
  return table ? RowOf(table, code).text : nullptr;
}

// call(first, second) with the kinds of arguments that the format wants.
template <class Call>
auto WithArguments(const char* format, int number, const char* text, Call call) {
  bool wantsText[2] = {};
  int count = 0;
  for (const char* at = format; (at = strchr(at, '%')) != nullptr && at[1]; ++at) {
    if (*++at == '%') continue;
    at += strcspn(at, "diuxXocs");
    if (count < 2) wantsText[count++] = *at == 's';
  }
  if (wantsText[0]) return wantsText[1] ? call(text, text) : call(text, number);
  return wantsText[1] ? call(number, text) : call(number, number);
}

// Sequences of calls over the stack.
class Session {
 public:
  explicit Session(Input input) : input_(input), tables_{Table(&input_), Table(&input_)} {
    for (std::string& text : texts_) text = input_.Text();
    // One of them long enough for a line of the trace to be cut.
    size_t size = texts_[3].empty() ? 0 : 8u * input_.Byte();
    while (texts_[3].size() < size) texts_[3] += texts_[3];
    ErrSetTable(nullptr, tables_[0].rows.data());
  }

  ~Session() {
    Clear();
    ErrSetTable(nullptr, nullptr);
    ErrCurrent->nPending = 0;
    ErrFile = nullptr;
  }

  void Run() {
    while (input_.at < input_.end) {
      Step(input_.Byte());
      MakeRoom();
      CheckMade();
    }
  }

 private:
  struct Made {
    const char* text;
    std::string wanted;
  };

  void Step(uint8_t what) {
    char trail[256];
    switch (what % 13) {
      case 0:
        SetLastError(what & 16 ? input_.Half() : what % 7);
        ErrPush(Code());
        break;
      case 1:
        ErrThrow(Code());
        break;
      case 2:
        PushText(reinterpret_cast<uintptr_t>(Text()));
        break;
      case 3:
        PushText(kFirstUserCode + input_.Byte());
        break;
      case 4:
        PushText(BuiltIn());
        break;
      case 5:
        Formatted(BuiltIn(), true);
        break;
      case 6:
        Formatted(kFirstUserCode + input_.Byte(), false);
        break;
      case 7: {
        formats_.push_back(input_.Format(false));
        Formatted(reinterpret_cast<uintptr_t>(formats_.back().c_str()), false);
        break;
      }
      case 8:
        Walk();
        break;
      case 9: {
        intptr_t result = ErrGetText(report_, static_cast<int8_t>(input_.Byte()));
        Check(result == 0 || result == -1 || result == reinterpret_cast<intptr_t>(report_));
        break;
      }
      case 10:
        Report(what & 16 ? ERR_REPORT_FULL : what >> 5);
        break;
      case 11:
        TraceLine(static_cast<int8_t>(what));
        break;
      case 12:
        if (ErrInfo(trail, static_cast<int8_t>(input_.Byte()))) Check(strlen(trail) <= 240);
        ErrRaise(Text(), what, Code());
        ErrReport(nullptr, ERR_REPORT_COMPOSE);
        if (what & 64) ErrReport(nullptr, what & 128 ? ERR_REPORT_FULL : 0);
        Check(strlen(ReportBuffer) < kReportBuffer);
        if (what & 16) ErrSetTable(nullptr, tables_[what >> 7].rows.data());
        break;
    }
  }

  // Any, but those that are marked as texts give an address where nothing is.
  uint32_t Code() {
    uint32_t code = input_.Word();
    return code & ERR_TEXT ? code & (ERR_TEXT | 0xFFFF) : code;
  }

  const char* Text() { return texts_[input_.Byte() % 4].c_str(); }

  // The code of a row of the built-in table that does not end the process.
  uintptr_t BuiltIn() {
    const MessageRow& row = RowOf(MessageTable, input_.Byte() % kFirstUserCode);
    return row.flags & ERR_FATAL ? 31 : row.code;
  }

  void PushText(uintptr_t codeOrText) {
    if (ErrLast != 0) ErrPush(1);
    ErrPushText(input_.Half() & ~ERR_FATAL, codeOrText);
  }

  void Formatted(uintptr_t codeOrFormat, bool builtIn) {
    const char* format = builtIn                      ? RowOf(MessageTable, codeOrFormat).text
                         : codeOrFormat <= UINT16_MAX ? FormatOf(codeOrFormat)
                                                      : reinterpret_cast<const char*>(codeOrFormat);
    if (!format) {
      Check(!ErrFormat(codeOrFormat));
      return;
    }
    int number = static_cast<int>(input_.Word());
    WithArguments(format, number, Text(), [&](auto first, auto second) {
      char wanted[kLongestFormatted + 1];
      int length = snprintf(wanted, sizeof wanted, format, first, second);
      bool made = strchr(format, '%');
      if (made && length > kLongestFormatted) return;
      const char* text = builtIn ? ErrText(static_cast<uint32_t>(codeOrFormat), first, second)
                                 : ErrFormat(codeOrFormat, first, second);
      Check(made ? text && text != format : text == format);
      if (made) made_.push_back({text, wanted});
    });
  }

  // What was made stays as it is until the stack is cleared.
  void CheckMade() {
    if (ErrCurrent->nCount == 0) made_.clear();
    for (const Made& made : made_) Check(made.text == made.wanted);
  }

  static bool IsUnknown(const ErrorEntry& entry) {
    if (!(entry.flags & ERR_SYSVALUE) || entry.flags & ERR_TEXT) return false;
    char* text = nullptr;
    constexpr DWORD kHow = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER;
    DWORD code = static_cast<DWORD>(entry.value);
    FormatMessageA(kHow, nullptr, code, 0, reinterpret_cast<char*>(&text), 0, nullptr);
    bool unknown = !text;
    LocalFree(text);
    return unknown;
  }

  // How many values there are for which the system has no message; reading one raises.
  static uint32_t Unknown() {
    uint32_t unknown = 0;
    for (uint32_t i = 0; i < ErrCurrent->nCount; ++i) unknown += IsUnknown(ErrCurrent->entries[i]);
    return unknown;
  }

  // Room for the pushes of a step, and for what the reports of these raise in turn.
  void MakeRoom() {
    if (ErrCurrent->nCount + 2 * Unknown() + 6 >= kErrEntries) Clear();
  }

  void Clear() {
    CheckMade();
    made_.clear();
    Check(ErrClear() == 0 && ErrCurrent->nCount == 0 && ErrLast == 0);
    Check(ErrGetText(report_, -1) == 0);  // and no walk is under way
  }

  void Walk() {
    ErrGetText(nullptr, -1);  // to its end
    MakeRoom();
    bool known = Unknown() == 0;
    intptr_t count = ErrGetText(nullptr, -1), seen = 0;
    while (intptr_t result = ErrGetText(report_, -1)) {
      Check(result == reinterpret_cast<intptr_t>(report_) && ++seen <= count);
      MakeRoom();
    }
    if (known) Check(seen == count);
  }

  void Report(uint32_t mode) {
    char trail[256];
    bool full = mode & ERR_REPORT_FULL;
    uint32_t count = ErrCurrent->nCount;
    bool any = ErrInfo(trail, full ? -1 : static_cast<int32_t>(mode));
    strcpy(report_, "untouched");
    ErrReport(report_, ERR_REPORT_COMPOSE | mode);
    if (!any) {
      Check(strcmp(report_, "untouched") == 0 && ErrCurrent->nCount == count);
      return;
    }
    bool labelled = false;
    for (std::string label : {"Error ", "Info  ", "Trace ", "Warn. "}) {
      label += trail + std::string(" (");
      labelled |= strncmp(report_, label.c_str(), label.size()) == 0;
    }
    Check(labelled && strstr(report_, "):"));
    if (full) Check(ErrCurrent->nCount == 0);
  }

  // The line holds the report of the newest level, cut.
  void TraceLine(int32_t level) {
    bool known = Unknown() == 0;
    std::string wanted;
    report_[0] = '\0';
    if (known) {
      ErrReport(report_, ERR_REPORT_COMPOSE);
      wanted = report_;
    }
    rewind(stream);
    memset(line, 0, sizeof line);
    TraceFile = stream;
    Trace(level, nullptr);
    fflush(stream);
    TraceFile = nullptr;
    constexpr size_t kStamp = 24, kMost = 1023;
    if (level > TraceLevel) {
      Check(line[0] == '\0');
    } else if (known) {
      Check(line + kStamp == wanted.substr(0, kMost - kStamp) + '\n');
    }
  }

  Input input_;
  Table tables_[2];
  std::string texts_[4];
  std::deque<std::string> formats_;
  std::vector<Made> made_;
  char report_[kReport];
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Check(freopen("/dev/null", "w", stdout));  // no console: reports stay in ReportBuffer
  stream = fmemopen(line, sizeof line, "w");
  ErrRaise(nullptr, 0, 1);
  ErrClear();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Session({data, data + size}).Run();
  return 0;
}
