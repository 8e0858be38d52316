// Roots, patterns and flags of an enumeration in a small folder of its own.
#pragma once

#include <cstring>
#include <vector>

#include "exports/tavrix32.h"
#include "quern/cerr.h"
#include "quern/cfile.h"
#include "tests/support/tree.h"
#include "tests/support/trial.h"

namespace tavrix_test {

inline std::string ListTrial(Choices& choices) {
  static const Tree tree;
  static const bool begun = [] {
    for (const char* name : {"f", "a/f.c", "a/b/g.h", "x.y/blank name", "a/b/c/ab.ab"})
      tree.File(name);
    std::filesystem::current_path(tree.root());
    return true;
  }();
  constexpr std::string_view kLetters = "abfxy.*?; \"c";
  const std::string roots = choices.Text(kLetters, 20), patterns = choices.Text(kLetters, 12);
  const uint32_t flags = choices.Below(256) << 24 | choices.Below(4);
  std::vector<char> name(262);  // what callers are told to provide
  int calls = 0;
  while (
      calls < 200 && begun &&
      XFileList(name.data(), roots.c_str(), patterns.empty() ? nullptr : patterns.c_str(), flags))
    ++calls;
  XFileList(name.data(), nullptr, nullptr, 0);
  quern::FileNameRec record;
  quern::FileSplitPath(roots.c_str(), &record);
  if (quern::ErrCurrent) quern::ErrClear();
  return memchr(name.data(), '\0', name.size()) ? "" : "no terminator";
}

}  // namespace tavrix_test
