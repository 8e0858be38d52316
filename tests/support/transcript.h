// Plays a transcript: lines of operations, each with what it leaves, as in
//
//   add 8 : 5 ; 5-8 8^5
//
// Behind ":" stand the result, "!" and the quiet failure or "=" and the trail and line of what was
// raised; behind ";" the words of the state that changed, each as its name and value.
#pragma once

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "quern/cerr.h"
#include "tests/support/trail.h"

namespace tavrix_test {

using Words = std::vector<std::string>;
using State = std::map<std::string, std::string>;

// Elements of an array go by their numbers; a dot is none.
inline int Number(const std::string& name) { return name == "." ? -1 : std::stoi(name); }
inline std::string Name(const void* at, const char* base, size_t stride) {
  if (!at) return ".";
  const auto from = static_cast<size_t>(static_cast<const char*>(at) - base);
  return from % stride ? "?" : std::to_string(from / stride);
}

// The transcript as it comes out, to be compared with the one that was given. `step` makes an
// operation and returns its result; `read` reads the whole state.
template <class Step, class Read>
std::string Played(const std::string& transcript, Step step, Read read) {
  std::istringstream lines(transcript);
  std::string played;
  State before = read();
  for (std::string line; std::getline(lines, line);) {
    std::istringstream text(line.substr(0, line.find(" :")));
    Words words;
    for (std::string word; text >> word;) words.push_back(word);
    quern::ErrLast = 0;
    const std::string result = step(words);
    played += text.str() + " :" + (result.empty() ? "" : " ") + result;
    const std::string quiet = quern::ErrLast ? " !" + std::to_string(quern::ErrLast) : "";
    const std::string at = "@" + std::to_string(quern::ErrLine);
    const std::string trail = ClearedTrail();
    played += trail.empty() ? quiet : " =" + trail + at;
    State after = read();
    std::string changed;
    for (auto& [name, value] : after)
      if (before[name] != value) changed += " " + name + value;
    before = after;
    played += (changed.empty() ? "" : " ;" + changed) + "\n";
  }
  return played;
}

}  // namespace tavrix_test
