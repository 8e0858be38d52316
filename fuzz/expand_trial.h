// Environment references in any texts, with values that hold references as well.
#pragma once

#include <cstring>

#include "platform/win32.h"
#include "quern/ccsl/expand.h"
#include "quern/cerr.h"
#include "tests/support/trial.h"

namespace tavrix_test {

inline std::string ExpandTrial(Choices& choices) {
  constexpr std::string_view kLetters = "AB%%%x;";
  for (const char* name : {"A", "B"})
    SetEnvironmentVariableA(name, choices.Text(kLetters, 12).c_str());
  const std::string text = choices.Text(kLetters, 40);
  const char* made = quern::CslExpand(text.c_str());
  char* taken = quern::CslExpandTake();
  const bool same = !made || made == taken;
  // Every reference at most a thousand times, each for a value of at most 12 bytes.
  const bool ends = !taken || strlen(taken) <= text.size() + 12'000;
  free(taken);
  if (quern::ErrCurrent) quern::ErrClear();
  return same && ends ? "" : "of " + text;
}

}  // namespace tavrix_test
