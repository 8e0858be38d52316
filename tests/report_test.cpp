// Texts of any length, the ends of the process, and reports on a console.

#include "tests/support/test.h"

namespace quern {
namespace {

uintptr_t Address(const char* text) { return reinterpret_cast<uintptr_t>(text); }

TEST(Report, LongNamesInBuiltInMessagesAreCut) {
  const std::string name(600, 'n');
  std::string all;
  for (const MessageRow* row = MessageTable; row->code != 0; ++row) {
    all += tavrix_test::Line("%u %X %s;", row->code, row->flags, row->text);
    const std::string text = ErrText(row->code, name.c_str(), name.c_str(), name.c_str());
    const std::string format = row->text;
    const size_t last = format.rfind("%s");
    ErrCurrent->nPending = 0;
    ErrClear();
    if (last == format.npos || format.find("%c") != format.npos) continue;  // may be a NUL
    const bool ends = format.rfind('%') != last || text.ends_with("n" + format.substr(last + 2));
    EXPECT_TRUE(ends && text.starts_with(format.substr(0, format.find('%')))) << text;
    EXPECT_TRUE(text.size() == 510 || (text.size() == 509 && format.find("%s") != last)) << text;
  }
  EXPECT_STREQ(ErrFormat(Address("%s-%d"), "a", 7), "a-7");
  EXPECT_EQ(tavrix_test::Sum(all), 11319009490476652485u);
  EXPECT_EQ(std::string(ErrFormat(Address("%510s"), "")).size(), 510u);
}

// Pushes that many codes and the message, and raises.
void Raise(int codes, uintptr_t message) {
  while (codes-- > 0) ErrPush(19);
  if (message) ErrPushText(0, message);
  ErrThrow(19);
}

TEST(ReportDeathTest, FatalFailuresEndTheProcess) {
  static const char *overflow = "%511s", *full = "Stack for errors exceeded limits";  // the least
#ifdef _WIN32
  constexpr int kMinusOne = -1;
#else
  constexpr int kMinusOne = 255;
#endif
  const struct {
    int code;
    std::string said;
    void (*body)();
  } kRows[] = {
      {0, "", [] { Raise(19, 0); }},
      {19, "", [] { Raise(18, 7); }},
      {1, full, [] { Raise(20, 0); }},
      {1, "   Fatal error: No error handler is defined", [] { Raise(1, 29), ErrPushText(0, 29); }},
      {kMinusOne, std::string(508, ' ') + "end",
       [] { ErrPush(1), ErrFormat(Address(overflow), "end"); }},
      {4, "hook ",
       [] {  // also while it ends
         Raise(1, 0), ErrClear();
         ClsExitHook = [] { fputs("hook ", stderr), ErrExit(-4); };
       }},
      {5, "^orderly",
       [] {
         atexit([] { fputs("orderly", stderr); });
         if (ClsExit() != 0) fputs("dis", stderr);  // by hand, before the end
         ErrExit(-5);
       }},
  };
  for (const auto& row : kRows)
    EXPECT_EXIT((dup2(2, 1), row.body(), exit(0)), testing::ExitedWithCode(row.code), row.said);
}

#ifndef _WIN32

// What reaches standard error when a body runs on a terminal, and the exit code.
std::string OnTerminal(int columns, const std::function<void()>& body) {
  tavrix_test::TerminalOptions options;
  options.errorsApart = true;
  tavrix_test::Terminal terminal(columns, 25, options);
  const int code = terminal.Run(body);
  EXPECT_EQ(terminal.Bytes(), "") << "a report asks the terminal nothing";
  return terminal.Errors() + std::to_string(code);
}

// On a console of that width. The end of the process reports what is pending.
TEST(Report, IsWrittenByTheRaiseThatTheFlagsAskFor) {
  const std::string whole = " 19 (M0): text\n", left = "[19 2]", none = "[19 0]";
  const std::tuple<int, uint32_t, std::string> kRows[] = {
      {80, ERR_ERROR | ERR_INFO, left + "0"},
      {80, ERR_TRACE, "Trace" + whole + none + "0"},
      {80, ERR_TRACE | ERR_INFO, "Info " + whole + none + "0"},
      {80, ERR_FATAL | ERR_WARN, "Warn." + whole + "19"},
      {19, ERR_TRACE, "Trace" + whole + none + "0"},
      {18, ERR_TRACE, "Trace 19 (M0):\n   text\n" + none + "0"},
      {1, ERR_TRACE, none + "0"}};  // such a window counts as none
  for (const auto& [columns, flags, written] : kRows)
    EXPECT_EQ(OnTerminal(columns,
                         [f = flags] {
                           ErrPush(19);
                           ErrPushText(f, Address("text"));
                           ErrFile = "m";
                           ErrThrow(19);
                           fprintf(stderr, "[%d %u]", ErrLast, ErrCurrent->nCount);
                           ErrClear();
                         }),
              written);
  EXPECT_EQ(OnTerminal(41,
                       [] {
                         ErrRaiseText("test", 63, 0, "older");
                         SetLastError(ERROR_ACCESS_DENIED);
                         ErrRaise("test", 187, ERR_SYSTEM | 19);
                       }),
            "Error 19 (TEST187): Access is denied (05)\n   older\n0");
}

#endif

}  // namespace
}  // namespace quern
