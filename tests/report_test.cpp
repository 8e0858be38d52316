// Failures in words: message texts, reading them back, and the report.

#include "tests/support/test.h"

namespace quern {
namespace {

using tavrix_test::AllocationFault;

constexpr char kModule[] = "c:\\home\\test.file.cpp";
constexpr uint32_t kUnknownToTheSystem = 0xFFFE;

uintptr_t Address(const char* text) { return reinterpret_cast<uintptr_t>(text); }

std::string Composed(uint32_t mode = 0) {
  char report[4096] = "untouched";
  EXPECT_EQ(ErrReport(report, ERR_REPORT_COMPOSE | mode), 0);
  return report;
}

TEST(Report, TextsOfMessagesAndTables) {
  static const MessageRow table[] = {{39, "thirty-nine", ERR_INFO},
                                     {60, "sixty %s", ERR_ERROR},
                                     {0, "not among them: %d", ERR_ERROR}};
  auto push = [](uintptr_t message) {
    ErrClear();
    ErrPush(1);
    ErrCurrent->nPending = 0;
    ErrPushText(0, message);
    char text[256] = "";
    ErrGetText(text, 0);
    return std::string(text);
  };
  ErrRaise(kModule, 1, 1);
  EXPECT_EQ(push(29), "Illegal file-open-mode specified");
  EXPECT_EQ(ErrCurrent->nPending, ERR_ERROR);
  EXPECT_EQ(push(31), "Failed to open %s");  // as it stands
  EXPECT_EQ(push(0), "Missing or undefined error message");
  EXPECT_EQ(ErrCurrent->nPending, ERR_FATAL);
  ErrCurrent->nPending = 0;
  EXPECT_EQ(push(39), "Reference by illegal pointer 0x00000027");
  EXPECT_EQ(ErrCurrent->nPending & 0xFFFF, ERR_TRACE | ERR_WARN);
  ErrCurrent->nPending = 0;
  ErrSetTable(nullptr, table);
  EXPECT_EQ(push(39), "thirty-nine");
  EXPECT_EQ(push(60), "sixty %s");
  EXPECT_EQ(push(45), "not among them: 45");
  EXPECT_EQ(push(29), "Illegal file-open-mode specified");  // below 39 always the library's
  EXPECT_EQ(push(61), "Reference by illegal pointer 0x0000003D");
  ErrCurrent->nPending = 0;
  ErrClear();
  EXPECT_STREQ(ErrFormat(60, "four"), "sixty four");
  EXPECT_STREQ(ErrFormat(29, 5), "not among them: 5");  // but formatted by the table alone
  EXPECT_STREQ(ErrText(31, "a"), "Failed to open a");
  EXPECT_STREQ(ErrFormat(31, "b"), "Failed to open b");  // until the next raise
  EXPECT_EQ(ErrFormat(61), nullptr);
  ErrThrow(0);
  for (const char* gone : {static_cast<const char*>(nullptr), reinterpret_cast<const char*>(45)}) {
    const MessageRow bare[] = {{40, gone, ERR_ERROR}, {50, "", 0}, {0, gone, ERR_ERROR}};
    ErrSetTable(nullptr, bare);
    std::string illegal = gone ? "0x0000002D" : "0x00000000";
    for (uint32_t code : {40, 45}) {
      ErrCurrent->nPending = 0;
      EXPECT_EQ(ErrFormat(code, 5), nullptr);
      EXPECT_EQ(push(code), "Reference by illegal pointer " + illegal);
      ErrCurrent->nPending = 0;
    }
  }
  ErrCurrent->nPending = 0;
  EXPECT_STREQ(ErrFormat(Address("%s-%d"), "a", 7), "a-7");
#ifndef _WIN32
  EXPECT_STREQ(ErrFormat(Address("%lc"), 0x7FFFFFFF), "%lc");  // the runtime refuses it
#endif
  EXPECT_EQ(std::string(ErrFormat(Address("%510s"), "")).size(), 510u);
}

TEST(Report, NamesInBuiltInMessagesAreCut) {
  ErrRaise(kModule, 1, 1);
  const std::string name(600, 'n');
  for (const MessageRow* row = MessageTable; row->code != 0; ++row) {
    ErrClear();
    std::string text = ErrText(row->code, name.c_str(), name.c_str(), name.c_str());
    std::string format = row->text;
    size_t last = format.rfind("%s");
    if (last == format.npos) continue;
    EXPECT_EQ(text.substr(0, format.find('%')), format.substr(0, format.find('%')));
    if (format.rfind('%') == last) {
      EXPECT_TRUE(text.ends_with("n" + format.substr(last + 2))) << text;
    }
    EXPECT_TRUE(text.size() == 510 || (text.size() == 509 && format.find("%s") != last)) << text;
  }
  ErrCurrent->nPending = 0;
  for (size_t length : {495, 496, 5000}) {
    ErrClear();
    std::string path(length, 'p');
    EXPECT_EQ(FileOpen(nullptr, path.c_str(), FO_READ | FO_MAPPED), nullptr);
    EXPECT_EQ(ErrLast, 11);
    char text[1024] = "";
    ErrGetText(text, 0);
    EXPECT_EQ(text, "Failed to open " + path.substr(0, 495));
  }
}

TEST(Report, TheFailureOfAnIllegalOpenMode) {
  char none[] = "none";
  EXPECT_EQ(ErrGetText(none, 0), 0);
  EXPECT_EQ(Composed(), "untouched");
  EXPECT_EQ(ErrReport(nullptr, ERR_REPORT_FULL), 0);
  EXPECT_EQ(ErrCurrent, nullptr);
  ErrRaiseText("cfile.cpp", 187, 0x80000013, 29);
  EXPECT_EQ(Composed(), "Error 19 (CFILE187): Illegal file-open-mode specified");
  ErrRaise(kModule, 12, 1000);
  EXPECT_EQ(Composed(), "Error 1000 (TEST12):");  // the newest entry has no text
  EXPECT_EQ(Composed(1), "Error 1000:19 (TEST12): Illegal file-open-mode specified");
  ErrFile = nullptr;
  EXPECT_EQ(Composed(ERR_REPORT_FULL), "Error 1000:19 (12):");  // goes on below the text just read
  EXPECT_EQ(ErrCurrent->nCount, 0u);
  ErrReport(nullptr, ERR_REPORT_COMPOSE);
}

TEST(Report, WithoutAConsoleIsKeptInTheBufferAndCut) {
  std::string longText(300, 'y');
  ErrRaiseText(kModule, 5, 3, longText.c_str());
  EXPECT_EQ(ErrReport(nullptr, ERR_REPORT_FULL), 0);
  EXPECT_EQ(ReportBuffer, "Error 03 (TEST5): " + longText.substr(0, 255 - 18));
  EXPECT_EQ(ErrCurrent->nCount, 0u);
}

TEST(Report, TextsThatAreGoneDoNotCrash) {
  ErrPush(1);
  ErrPushEntry(ERR_TEXT, 0x123);
  ErrPushEntry(ERR_TEXT, 0);
  ErrThrow(1);
  EXPECT_EQ(Composed(ERR_REPORT_FULL),
            "Error 01 (0): Reference by illegal pointer 0x00000000 Reference by illegal pointer "
            "0x00000123");
#ifndef _WIN32                       // where there is memory at such addresses
  ErrRaise(kModule, 1, 0x02000005);  // a code with the mark of a text
  EXPECT_EQ(Composed(ERR_REPORT_FULL),
            "Error 33554437 (TEST1): Reference by illegal pointer 0x02000005");
#endif
}

TEST(Report, MissingSystemTextIsAFailureOfItsOwn) {
  ErrRaiseText(kModule, 1, 9, "below");
  ErrPushEntry(ERR_SYSVALUE, kUnknownToTheSystem);
  char text[256] = "untouched";
  EXPECT_EQ(ErrGetText(text, 0), 0);
  EXPECT_STREQ(text, "untouched");
  EXPECT_EQ(ErrLast, 1);
  EXPECT_EQ(ErrLine, 341);
  EXPECT_EQ(ErrCurrent->nCount, 0u);  // message 2 has the report written
  // With the walk under way, as it was: what lay below the value.
  EXPECT_STREQ(ReportBuffer, "Trace 01:09 (CERR341): below");
  ErrRaiseText(kModule, 2, 8, "below");
  ErrPushEntry(ERR_SYSVALUE, kUnknownToTheSystem);
  ErrPush(3);
  ErrThrow(3);
  EXPECT_EQ(Composed(ERR_REPORT_FULL), "Error 03:08 (TEST2):");  // the other ends it
  EXPECT_EQ(ErrCurrent->nCount, 0u);
}

using ReportDeathTest = testing::Test;

TEST(ReportDeathTest, OverflowOfATextIsPrinted) {
  auto overflow = [] {
    dup2(2, 1);
    ErrPush(1);
    ErrFormat(Address("%511s"), "end");  // the least that is too long
    exit(0);
  };
#ifdef _WIN32
  constexpr int kMinusOne = -1;
#else
  constexpr int kMinusOne = 255;
#endif
  EXPECT_EXIT(overflow(), testing::ExitedWithCode(kMinusOne), std::string(508, ' ') + "end");
  auto without = [&] {
    ErrPush(1);
    tavrix_test::AllocationFault fault(1);  // of the text
    ErrFormat(Address("<%511s>"), "end");
  };
  EXPECT_EXIT(without(), testing::ExitedWithCode(kMinusOne), "");
}

#ifdef _WIN32

// On a console (tests/windows/on_terminal).
TEST(ConsoleReport, GoesToStandardError) {
  if (!tavrix_test::HasConsole()) GTEST_SKIP() << "standard output is no console";
  HANDLE errors, writer;
  ASSERT_TRUE(CreatePipe(&errors, &writer, nullptr, 0));
  SetStdHandle(STD_ERROR_HANDLE, writer);
  ErrRaiseText("test", 63, 0, "older");
  ErrRaiseText("cfile", 187, 19, 24);
  char text[256];
  DWORD length = 0;
  ReadFile(errors, text, sizeof text, &length, nullptr);
  EXPECT_EQ(std::string(text, length),
            "Trace 19 (CFILE187): Could not create temporary file\n   older\n");
}

#else

// The exit code, and what reaches standard error and the terminal, when a body runs on one.
struct Written {
  int code;
  std::string errors, output;
};

Written OnTerminal(int columns, const std::function<void()>& body) {
  tavrix_test::TerminalOptions options;
  options.errorsApart = true;
  tavrix_test::Terminal terminal(columns, 25, options);
  int code = terminal.Run(body);
  return {code, terminal.Errors(), terminal.Bytes()};
}

TEST(Report, MessageFlagsActOnTheNextRaise) {
  auto raised = [](uint32_t flags, uint32_t code = 19) {
    return OnTerminal(80, [=] {
      ErrPush(code);
      ErrPushText(flags, Address("text"));
      ErrFile = "m";
      ErrThrow(code);
      fprintf(stderr, "[%d %u]", ErrLast, ErrCurrent->nCount);
      ErrClear();
    });
  };
  auto expect = [](const Written& written, int code, const std::string& errors) {
    EXPECT_EQ(written.code, code);
    EXPECT_EQ(written.errors, errors);
    EXPECT_EQ(written.output, "");  // a report asks the terminal nothing
  };
  expect(raised(0), 0, "[19 2]");
  expect(raised(ERR_ERROR), 0, "[19 2]");
  expect(raised(ERR_INFO), 0, "[19 2]");
  expect(raised(ERR_TRACE), 0, "Trace 19 (M0): text\n[19 0]");
  expect(raised(ERR_WARN), 0, "Warn. 19 (M0): text\n[19 0]");
  expect(raised(ERR_WARN | ERR_TRACE), 0, "Trace 19 (M0): text\n[19 0]");
  expect(raised(ERR_TRACE | ERR_INFO), 0, "Info  19 (M0): text\n[19 0]");
  // The end of the process reports what is pending.
  expect(raised(ERR_FATAL), 19, "Error 19 (M0): text\n");
  expect(raised(ERR_FATAL, 3), 3, "Error 03 (M0): text\n");
  expect(raised(ERR_FATAL | ERR_WARN), 19, "Warn. 19 (M0): text\n");
}

TEST(Report, WrapsAtTheWidthOfTheConsole) {
  auto report = [] {
    ErrRaiseText("test", 63, 0, "older");
    ErrRaiseText("test", 187, 19, 29);
  };
  std::string header = "Error 19 (TEST187):", text = "Illegal file-open-mode specified";
  int fits = static_cast<int>(header.size() + 1 + text.size());
  std::string rest = "\n   older\n";
  EXPECT_EQ(OnTerminal(fits, report).errors, header + " " + text + rest);
  EXPECT_EQ(OnTerminal(fits - 1, report).errors, header + "\n   " + text + rest);
  auto system = [] {
    SetLastError(ERROR_ACCESS_DENIED);
    ErrRaise("test", 187, ERR_SYSTEM | 19);
  };
  fits = static_cast<int>((header + " Access is denied (05)").size());
  EXPECT_EQ(OnTerminal(fits, system).errors, header + " Access is denied (05)\n");
  EXPECT_EQ(OnTerminal(fits - 1, system).errors, header + "\n   Access is denied (05)\n");
  EXPECT_EQ(OnTerminal(2, report).errors, header + "\n   " + text + rest);
  EXPECT_EQ(OnTerminal(1, report).errors, "");  // such a window counts as none
}

TEST(Report, FullStacksAndMissingTextsEnd) {
  Written written = OnTerminal(80, [] {
    for (int i = 0; i < 20; ++i) ErrPushEntry(ERR_SYSVALUE, kUnknownToTheSystem);
    ErrCurrent->entries[0] = {ERR_CODE, 7};
    exit(5);
  });
  EXPECT_EQ(written.code, 1);  // no room for the failure of the report
  EXPECT_EQ(written.errors, "Error 07 (0):");
  EXPECT_EQ(written.output, "   Fatal error: Stack for errors exceeded limits\r\n");
}

#endif

}  // namespace
}  // namespace quern
