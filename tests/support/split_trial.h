// The splitter over any text, separator and steps.
#pragma once

#include <string>
#include <vector>

#include "quern/cmem/split.h"
#include "tests/support/trial.h"

namespace tavrix_test {

inline std::string SplitTrial(Choices& choices) {
  const std::string sep = choices.One<const char*>({";", ",", ";;", ", ;", ""});
  const std::string text = choices.Text("ab ;\t,", 30);
  const std::vector<char> block(text.c_str(), text.c_str() + text.size() + 1);
  const auto size = static_cast<uint32_t>(text.size());
  quern::MemSplit split;
  quern::MemSplitInit(&split, block.data(), size, sep.data(), static_cast<uint32_t>(sep.size()));
  choices.Log("\"%s\" by \"%s\"\n", text.c_str(), sep.c_str());
  // Forward: what the separators stand between; an end behind the last one is no token.
  std::string joined;
  for (uint32_t tokens = 0; !sep.empty() && tokens <= size; ++tokens) {
    const char* token = quern::MemSplitNext(&split, 0, 0, quern::SPLIT_NEXT);
    if (!token) break;
    if (tokens) joined += sep;
    const std::string bytes(token, split.nToken);
    if (bytes.find(sep) != bytes.npos) return "a separator in " + bytes;
    joined += bytes;
  }
  if (!sep.empty() && joined != text && joined + sep != text) return "not the text: " + joined;
  // Anyhow: tokens within the text, or none; where one is found, it is.
  for (int step = 0; step < 20 && choices.More(); ++step) {
    const uint32_t flags = choices.Below(5) | choices.Below(8) << 17;
    const char* token = quern::MemSplitNext(&split, 0, 0, flags);
    choices.Log("%x\n", flags);
    if (!token && (split.pToken || split.nToken)) return "something of no token";
    if (token && (token < block.data() || token + split.nToken > block.data() + size))
      return "a token outside";
    const std::string in = choices.Text("ab; ", 4);
    const char* hit = quern::MemSplitFind(&split, in.data(), static_cast<uint32_t>(in.size()),
                                          flags & quern::SPLIT_TRIM);
    const size_t at = hit ? in.find(std::string(split.pToken, split.nToken)) : 0;
    if (hit && in.data() + at != hit) return "found at another place in " + in;
  }
  return "";
}

}  // namespace tavrix_test
