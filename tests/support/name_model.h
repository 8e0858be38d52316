// The rules for names of files on POSIX systems, the plain way.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <string>

#include "platform/posix/match.h"

namespace tavrix_test {

inline bool Matches(const std::string& pattern, const std::string& name) {
  using namespace posix_layer;
  const UpperTable upper = CurrentUpper();
  NamePattern compiled;
  CompilePattern(pattern.data(), static_cast<uint32_t>(pattern.size()), upper, &compiled);
  return MatchName(compiled, name.data(), static_cast<uint32_t>(name.size()), upper);
}

// Whether a search for `pattern` finds `name`; what was seen not to fit is not tried again.
inline bool ModelMatch(std::string pattern, const std::string& name) {
  if (pattern == "*.*") pattern = "*";
  const char* const dot = strrchr(name.c_str(), '.');
  std::string failed((pattern.size() + 1) * (name.size() + 1), 0);
  // A '.' that is nothing at the end of the name, in front of a wildcard or the pattern's end.
  auto open = [&](const char* p) {
    return *p == '.' && strchr("*?", p[1]) && pattern != "." && pattern != "..";
  };
  auto fits = [&](auto& self, const char* p, const char* n) -> bool {
    char& no = failed[static_cast<size_t>(p - pattern.c_str()) * (name.size() + 1) +
                      static_cast<size_t>(n - name.c_str())];
    if (no || (!*p && !*n)) return !no;
    const bool fit = *p == '*' ? self(self, p + 1, n) ||
                                     (*n && !(open(p + 1) && n == dot) && self(self, p, n + 1))
                     : *p == '?' ? self(self, p + 1, n + (*n && *n != '.'))
                     : !*n       ? open(p) && self(self, p + 1, n)
                                 : toupper(*p) == toupper(*n) && self(self, p + 1, n + 1);
    no = !fit;
    return fit;
  };
  return fits(fits, pattern.c_str(), name.c_str());
}

// The full form of `name` in a folder.
inline std::string ModelFull(const std::string& name, const std::string& folder) {
  if (isalpha(static_cast<unsigned char>(name[0])) && name[1] == ':') return name;
  if (name.starts_with("\\\\")) return name;
  std::string path = name;
  std::replace(path.begin(), path.end(), '\\', '/');
  const bool ends = path.ends_with('/');
  if (!path.starts_with('/')) path = folder + "/" + path;
  path.erase(0, std::min(path.find_first_not_of('/'), path.size()) - 1);
  path = std::filesystem::path(ends ? path : path + "/").lexically_normal().string();
  if (!ends && path.size() > 1) path.pop_back();
  return path;
}

}  // namespace tavrix_test
