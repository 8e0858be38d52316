// Patterns against names, and full names: whatever the texts are, the quick ways agree with the
// plain ones.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#ifndef _WIN32

#include "platform/posix/match.h"
#include "platform/win32.h"

namespace {

void Require(bool holds) {
  if (!holds) abort();
}

bool Matches(const std::string& pattern, const std::string& name) {
  posix_layer::UpperTable upper = posix_layer::CurrentUpper();
  posix_layer::NamePattern compiled;
  posix_layer::CompilePattern(pattern.data(), static_cast<uint32_t>(pattern.size()), upper,
                              &compiled);
  return posix_layer::MatchName(compiled, name.data(), static_cast<uint32_t>(name.size()), upper);
}

void TryMatch(const std::string& pattern, const std::string& name) {
  bool matches = Matches(pattern, name);
  // A second '*' beside a first adds nothing where no '.' follows.
  size_t any = pattern.find('*');
  if (any != std::string::npos && pattern != "*.*" && pattern.size() < 259 &&
      (any + 1 == pattern.size() || pattern[any + 1] != '.')) {
    Require(Matches(std::string(pattern).insert(any, 1, '*'), name) == matches);
  }
  // A name finds itself, unless it is a pattern.
  if (name.find_first_of("*?") == std::string::npos) Require(Matches(name, name));
  Require(Matches("*", name) && Matches("*.*", name));
}

void TryFullName(const std::string& name) {
  char full[8192], again[8192];
  char* part = nullptr;
  DWORD length = GetFullPathNameA(name.c_str(), sizeof full, full, &part);
  if (length == 0) {
    Require(name.empty() || name.size() >= MAX_PATH);
    return;
  }
  Require(strlen(full) == length && length < sizeof full);
  Require(!part || (part > full && *part));
  // One byte less than needed is refused.
  Require(GetFullPathNameA(name.c_str(), length, again, nullptr) == length + 1);
  if (full[0] != '/' || length >= MAX_PATH) return;
  Require(!strstr(full, "//") && !strstr(full, "/./") && !strstr(full, "/../") &&
          !strchr(full, '\\'));
  Require(GetFullPathNameA(full, sizeof again, again, nullptr) == length);
  Require(strcmp(full, again) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  size_t middle = text.find('\n');
  std::string pattern = text.substr(0, middle).c_str();
  std::string name = middle == std::string::npos ? "" : text.substr(middle + 1).c_str();
  if (pattern.size() <= 259 && name.size() <= 255) TryMatch(pattern, name);
  TryFullName(pattern);
  return 0;
}

#else

extern "C" int LLVMFuzzerTestOneInput(const uint8_t*, size_t) { return 0; }

#endif
