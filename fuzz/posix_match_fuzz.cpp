// Patterns against names, and full names: whatever the texts are, the quick ways agree with the
// plain ones.
#include <cstdint>
#include <cstdlib>
#include <string>

#ifndef _WIN32

#include <unistd.h>

#include "platform/win32.h"
#include "tests/support/name_model.h"

namespace {

void Require(bool holds) {
  if (!holds) abort();
}

void TryFullName(const std::string& name) {
  char full[8192], home[4096];
  DWORD length = GetFullPathNameA(name.c_str(), sizeof full, full, nullptr);
  if (length == 0) return Require(name.empty() || name.size() >= MAX_PATH);
  Require(full == tavrix_test::ModelFull(name, getcwd(home, sizeof home)));
  // One byte less than needed is refused.
  Require(GetFullPathNameA(name.c_str(), length, full, nullptr) == length + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  size_t middle = text.find('\n');
  std::string pattern = text.substr(0, middle).c_str();
  std::string name = middle == std::string::npos ? "" : text.substr(middle + 1).c_str();
  if (pattern.size() <= 259 && name.size() <= 255) {
    Require(tavrix_test::Matches(pattern, name) == tavrix_test::ModelMatch(pattern, name));
  }
  TryFullName(pattern);
  return 0;
}

#else

extern "C" int LLVMFuzzerTestOneInput(const uint8_t*, size_t) { return 0; }

#endif
