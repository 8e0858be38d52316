// Plays a transcript: operations with what each leaves, ended by commas and line ends, as in
//
//   add 8 : 5 ; 5-8 8^5, get = 4 : .
//
// Behind ":" stand the result, "!" and the quiet failure or "=" and the trail and line of what was
// raised; behind ";" the words of the state that changed, each as its name and value.
#pragma once

#include <cctype>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "quern/cerr.h"
#include "tests/support/trail.h"

namespace tavrix_test {

using Words = std::vector<std::string>;  // those that are not there are dots, which stand for none
using State = std::map<std::string, std::string>;

// What lies in an array goes by its number.
inline std::string Name(const void* at, const void* base, size_t stride) {
  if (!at) return ".";
  const size_t from = reinterpret_cast<uintptr_t>(at) - reinterpret_cast<uintptr_t>(base);
  return from % stride ? "?" : std::to_string(from / stride);
}

// Trace lines with decimal numbers, and addresses numbered in the order in which they come.
inline std::string Numbered(std::string lines) {
  static const std::regex word("0x[0-9A-F]{8,}");
  std::map<uint64_t, size_t> numbers;
  std::string text;
  for (std::smatch found; std::regex_search(lines, found, word); lines = found.suffix()) {
    const uint64_t value = std::stoull(found.str(), nullptr, 16);
    text.append(found.prefix());
    text += value >> 16
                ? "@" + std::to_string(numbers.try_emplace(value, numbers.size()).first->second)
                : std::to_string(value);
  }
  return text + lines;
}

// Elements with links at an offset, of a size at which a deletion that counts the offset in whole
// links hits the next element's. `marks` stand for the pointers of a link.
template <class Link>
struct Elements {
  static constexpr uint32_t kOffset = 8;
  static constexpr size_t kStride = kOffset * (sizeof(Link) - 1);
  static constexpr int kElements = 20;
  const char* marks;
  uint32_t offset;
  alignas(16) char memory[kStride * (kElements + 1)];

  char* At(const std::string& name) {
    return isdigit(name[0]) ? memory + kStride * std::stoul(name) : nullptr;
  }
  Link* LinkAt(const std::string& name) {
    return isdigit(name[0]) ? reinterpret_cast<Link*>(At(name) + offset) : nullptr;
  }
  std::string NameOf(const Link* link) const { return Name(link, memory + offset, kStride); }
  std::string NameOf(const void* element) const { return Name(element, memory, kStride); }

  State Read(State state) {
    for (int i = 0; i < kElements; ++i)
      for (size_t k = 0; k < sizeof(Link) / sizeof(Link*); ++k)
        state[std::to_string(i) + marks[k]] =
            NameOf(reinterpret_cast<Link* const*>(LinkAt(std::to_string(i)))[k]);
    return state;
  }
};

// The transcript as it comes out, to be compared with the one that was given. `step` makes an
// operation and returns its result; `read` reads the whole state.
template <class Step, class Read>
std::string Played(const std::string& transcript, Step step, Read read) {
  std::string played;
  State before = read();
  for (size_t at = 0, end; at < transcript.size(); at = end + 1) {
    end = std::min(transcript.find_first_of(",\n", at), transcript.size());
    std::string call = transcript.substr(at, end - at);
    std::istringstream text(call.erase(std::min(call.find(" :"), call.size())));
    Words words;
    for (std::string word; text >> word;) words.push_back(word);
    if (!words.empty()) {
      words.resize(5, ".");
      quern::ErrLast = 0;
      const std::string result = step(words);
      const std::string quiet = quern::ErrLast ? " !" + std::to_string(quern::ErrLast) : "";
      const std::string raised = "@" + std::to_string(quern::ErrLine), trail = ClearedTrail();
      call += " :" + (result.empty() ? "" : " " + result);
      call += trail.empty() ? quiet : " =" + trail + raised;
      State after = read();
      std::string changed;
      for (auto& [name, value] : after)
        if (before[name] != value) changed += " " + name + value;
      if (!changed.empty()) call += " ;" + changed;
      before = after;
    }
    played += call + transcript.substr(end, 1);
  }
  return played;
}

}  // namespace tavrix_test
