// Runs a body on a console of 80 columns and 25 rows.
#pragma once

#include <gtest/gtest.h>

#include "platform/win32.h"
#include "tests/support/terminal.h"

// On Windows the test itself runs on a console or is skipped (tests/windows/on_terminal runs it on
// one); elsewhere the body is a child on a terminal of its own.
#ifdef _WIN32

namespace tavrix_test {

inline bool HasConsole() {
  DWORD mode;
  return GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode) != 0;
}

}  // namespace tavrix_test

#define ON_CONSOLE(body)                                                             \
  do {                                                                               \
    if (!tavrix_test::HasConsole()) GTEST_SKIP() << "standard output is no console"; \
    body();                                                                          \
  } while (false)

#else

#define ON_CONSOLE(body)                    \
  do {                                      \
    tavrix_test::Terminal terminal(80, 25); \
    EXPECT_EQ(terminal.Run(body), 0);       \
  } while (false)

#endif
