// Texts of system errors.
#include "tests/support/test.h"

namespace {

constexpr DWORD kFlags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;

// The text, or "<error>" when there is none.
std::string Message(DWORD code, DWORD flags = kFlags) {
  char* text = reinterpret_cast<char*>(&text);
  SetLastError(0);
  DWORD length =
      FormatMessageA(flags, nullptr, code, 0, reinterpret_cast<char*>(&text), 0, nullptr);
  if (length == 0) return "<" + std::to_string(GetLastError()) + ">";
  EXPECT_EQ(GetLastError(), 0u) << "a success leaves it alone";
  std::string result = text;
  EXPECT_EQ(length, result.size());
  EXPECT_EQ(LocalFree(text), nullptr);
  return result;
}

TEST(PosixMessage, HasATextForWhatTheLayerSets) {
  EXPECT_EQ(Message(ERROR_SUCCESS), "The operation completed successfully.\r\n");
  EXPECT_EQ(Message(ERROR_FILE_NOT_FOUND), "The system cannot find the file specified.\r\n");
  EXPECT_EQ(Message(ERROR_PRIVILEGE_NOT_HELD),
            "A required privilege is not held by the client.\r\n");
  // Theirs have inserts.
  EXPECT_EQ(Message(ERROR_BAD_EXE_FORMAT), "<87>");
  EXPECT_EQ(Message(ERROR_MR_MID_NOT_FOUND), "<87>");
}

TEST(PosixMessage, KnowsEveryTextByItsCodeAlone) {
  std::set<std::string> texts;
  DWORD found = 0;
  for (DWORD code = 0; code < 0x10000; ++code) {
    std::string text = Message(code);
    if (text == "<317>" || text == "<87>") continue;
    ++found;
    texts.insert(text);
    ASSERT_GT(text.size(), 3u);
    EXPECT_EQ(text.substr(text.size() - 3), ".\r\n") << code;
    EXPECT_EQ(text.find('%'), std::string::npos) << "an insert: " << text;
    EXPECT_EQ(text.find("  "), std::string::npos) << text;
  }
  EXPECT_GT(found, 250u);
  EXPECT_EQ(found - texts.size(), 4u) << "196 and 199, 1450 to 1452, 1453 and 1454 share theirs";
  EXPECT_EQ(Message(~DWORD{0}), "<317>");
}

}  // namespace
