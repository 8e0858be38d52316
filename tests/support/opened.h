// What tests of the file module need, and short ways to open and close.
#pragma once

#include "tests/support/test.h"

namespace tavrix_test {

inline quern::FileObject* Open(const Tree& tree, const char* name, uint32_t flags) {
  return quern::FileOpen(nullptr, tree.Path(name).c_str(), flags);
}

// The data of the current file, a mapped one.
inline std::string Data() { return {quern::CurrentFile->pView, quern::CurrentFile->nSize}; }

// Closes it. Returns the trail.
inline std::string Close() {
  quern::FileClass(0);
  return ClearedTrail();
}

// Opens a file and closes it. Returns its size and "r" or "w" for what it was opened for, or the
// trail; and that of closing it behind a stroke, if there is one.
inline std::string Opened(const std::string& name, uint32_t flags) {
  const quern::FileObject* file = quern::FileOpen(nullptr, name.c_str(), flags);
  const char* way = file && file->fFlags & quern::FO_READ ? "r" : "w";
  const std::string result = file ? std::to_string(file->nSize) + way : ClearedTrail();
  const std::string end = Close();
  return end.empty() ? result : result + "/" + end;
}

}  // namespace tavrix_test
