// Bytes as hex digits and back, and numbers in any text.
#pragma once

#include <cstring>
#include <vector>

#include "quern/cerr.h"
#include "quern/cfmt.h"
#include "tests/support/trial.h"

namespace tavrix_test {

inline std::string HexTrial(Choices& choices) {
  std::vector<char> bytes(choices.Below(60) + 1);  // a block of their own
  for (char& byte : bytes) byte = static_cast<char>(choices.Below(256));
  const auto size = static_cast<uint32_t>(bytes.size());
  quern::FmtHex(bytes.data(), size, nullptr, choices.Below(16) | choices.Below(4) << 28);
  const std::string text = quern::FmtHex(bytes.data(), size, nullptr, choices.Below(16));
  std::vector<char> back(bytes.size() + 5);
  const uint32_t count = quern::FmtUnhex(text.c_str(), static_cast<uint32_t>(text.size()),
                                         back.data(), quern::UNHEX_BYTES);
  if (count != size || memcmp(back.data(), bytes.data(), size) != 0) return "back from " + text;
  // A number takes a character at least, and stores four bytes at most.
  const std::string any = choices.Text("0x1fFh. zg-", 40);
  std::vector<char> out(any.size() * 4 + 1);
  for (uint32_t mode : {0u, quern::UNHEX_FIT, quern::UNHEX_WORDS, quern::UNHEX_LONG})
    if (quern::FmtUnhex(any.c_str(), static_cast<uint32_t>(any.size()), out.data(), mode) >=
        out.size())
      return "numbers of " + any;
  if (quern::ErrCurrent) quern::ErrClear();
  return "";
}

}  // namespace tavrix_test
