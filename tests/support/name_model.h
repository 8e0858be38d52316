// The rules for names of files on this home, the plain way.
#pragma once

#include <cctype>
#include <cstring>
#include <string>

#include "platform/posix/match.h"

namespace tavrix_test {

inline bool Matches(const std::string& pattern, const std::string& name) {
  posix_layer::UpperTable upper = posix_layer::CurrentUpper();
  posix_layer::NamePattern compiled;
  posix_layer::CompilePattern(pattern.data(), static_cast<uint32_t>(pattern.size()), upper,
                              &compiled);
  return posix_layer::MatchName(compiled, name.data(), static_cast<uint32_t>(name.size()), upper);
}

// Whether a search for `pattern` finds `name`: for each rest of the one, each rest of the other.
inline bool ModelMatch(std::string pattern, const std::string& name) {
  if (pattern == "*.*") pattern = "*";
  const bool own = pattern == "." || pattern == "..";
  // A '.' that is nothing at the end of the name; c_str() ends in the zero byte that strchr finds.
  auto open = [&](size_t p) {
    return !own && pattern[p] == '.' && strchr("*?", pattern.c_str()[p + 1]);
  };
  const size_t row = name.size() + 1, dot = name.rfind('.');
  std::string fits((pattern.size() + 1) * row, 0);
  fits.back() = 1;
  for (size_t p = pattern.size(); p-- > 0;) {
    for (size_t n = row; n-- > 0;) {
      const char *here = &fits[p * row + n], *behind = here + row;
      const bool ends = n == name.size();
      bool fit;
      if (pattern[p] == '*') {
        fit = *behind || (!ends && !(open(p + 1) && n == dot) && here[1]);
      } else if (pattern[p] == '?') {
        fit = behind[!ends && name[n] != '.'];
      } else {
        fit = ends ? open(p) && *behind : toupper(pattern[p]) == toupper(name[n]) && behind[1];
      }
      fits[p * row + n] = fit;
    }
  }
  return fits[0];
}

// The full form of `name` in the folder `home`.
inline std::string ModelFull(const std::string& name, const std::string& home) {
  if (isalpha(static_cast<unsigned char>(name[0])) && name[1] == ':') return name;
  if (name.rfind("\\\\", 0) == 0) return name;
  auto separates = [](char c) { return c == '/' || c == '\\'; };
  std::string result, component;
  for (char c : (separates(name[0]) ? name : home + "/" + name) + "/") {
    if (!separates(c)) {
      component += c;
      continue;
    }
    if (component == "..") {
      result.resize(result.empty() ? 0 : result.rfind('/'));
    } else if (component != "" && component != ".") {
      result += "/" + component;
    }
    component.clear();
  }
  return result.empty() || separates(name.back()) ? result + "/" : result;
}

}  // namespace tavrix_test
