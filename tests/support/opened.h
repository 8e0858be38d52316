// The current file, for tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "quern/cfile/object.h"
#include "quern/cfile/open.h"
#include "tests/support/trail.h"
#include "tests/support/tree.h"

namespace tavrix_test {

inline quern::FileObject* Open(const Tree& tree, const char* name, uint32_t flags) {
  quern::FileObject* file = quern::FileOpen(nullptr, tree.Path(name).c_str(), flags);
  EXPECT_NE(file, nullptr);
  return file;
}

// The data of a mapped one.
inline std::string Data() { return {quern::CurrentFile->pView, quern::CurrentFile->nSize}; }

// Closes it. Returns the trail.
inline std::string Close() {
  quern::FileClass(0);
  return ClearedTrail();
}

// Opens, says how it went ("ok" or the trail), and closes.
inline std::string Opened(const std::string& name, uint32_t flags) {
  quern::FileObject* file = quern::FileOpen(nullptr, name.c_str(), flags);
  std::string result = file ? "ok" : ClearedTrail();
  EXPECT_EQ(Close(), "") << name << " " << flags;
  return result;
}

}  // namespace tavrix_test
