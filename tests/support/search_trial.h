// A search of any kind against the model of its rules.
#pragma once

#include "tests/support/search_model.h"
#include "tests/support/trial.h"

namespace tavrix_test {

// Text that repeats itself, which is where a search that skips can skip too far.
inline std::string Repeated(Choices& choices) {
  const std::string unit = "a" + choices.Text("aab", choices.OneIn(2) ? 4 : 60);
  std::string text = unit;
  const uint32_t size = 300 + choices.Below(2000);
  while (text.size() < size) text += unit;
  for (uint32_t flaws = choices.Below(4); flaws > 0; --flaws)
    text[choices.Below(static_cast<uint32_t>(text.size()))] ^= 3;
  return text;
}

inline std::string SearchTrial(Choices& choices) {
  using namespace quern;
  using namespace quern::model;
  static const std::string all = [] {
    std::string bytes(256, 0);
    for (int i = 0; i < 256; ++i) bytes[i] = static_cast<char>(i);
    return bytes;
  }();
  const std::string letters =
      choices.One<std::string>({"ab", "aAbB", "abcdefgh@`[{", {"\0\x80\xE9\xC9z", 5}, "ab,", all});
  const uint32_t what = choices.Below(4);
  // Sizes around the widths that vectors have, and any.
  const uint32_t size = choices.OneIn(2) ? choices.Below(200) : (1u << choices.Below(9)) + 2;
  std::string text = choices.OneIn(8) ? Repeated(choices) : choices.Text(letters, size);
  std::string sought = choices.Text(letters, choices.OneIn(4) ? 70 : 6);
  uint32_t flags = 0;
  for (uint32_t flag : {MEM_NOTINSET, MEM_BACKWARD, MEM_NOCASE})
    if (choices.OneIn(3)) flags |= flag;
  bool agree = true;
  if (what <= 1) {
    if (choices.OneIn(2) && text.size() >= sought.size()) {  // one that is there, nearly
      const auto places = static_cast<uint32_t>(text.size() - sought.size() + 1);
      sought = text.substr(choices.Below(places), sought.size());
      if (choices.OneIn(4) && !sought.empty()) sought.back() ^= 3;
    }
    agree = TryFind(text, letters[0], sought, flags & ~(choices.OneIn(9) ? 0 : MEM_NOTINSET));
  } else if (what == 2) {
    if (choices.OneIn(2))  // few members in the text, or few others
      for (char& c : text)
        if (ModelInSet(c, sought, flags) && choices.Below(50)) c = '\x01';
    agree = TryFindAny(text, sought, flags);
  } else {
    text = "a" + choices.Text("abAB", choices.OneIn(8) ? 50 : 6);
    agree = TryWild(text, "ab"[choices.Below(2)], choices.Text({"aAb**?\0", 7}, 7),
                    choices.Text("ab*?", 4), flags & ~MEM_NOTINSET);
  }
  choices.Log("%u flags %x for \"%s\" in \"%s\"\n", what, flags, sought.c_str(), text.c_str());
  return agree ? "" : "other results";
}

}  // namespace tavrix_test
