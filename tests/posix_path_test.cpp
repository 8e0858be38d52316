// Full names, attributes and kinds of drives.
#include "tests/support/name_model.h"
#include "tests/support/test.h"

namespace {

using tavrix_test::Tree;

std::string Full(const std::string& name) {
  char buffer[2 * PATH_MAX];
  DWORD length = GetFullPathNameA(name.c_str(), sizeof buffer, buffer, nullptr);
  return std::string(buffer, length);
}

TEST(PosixPath, NamesAreFullAsTheModelSays) {
  for (const char* folder : {"/usr", "/"}) {
    ASSERT_EQ(chdir(folder), 0);
    auto trial = [folder](tavrix_test::Choices& choices) -> std::string {
      std::string name;
      for (uint32_t pieces = choices.Below(9) + 1; pieces > 0; --pieces)
        name += choices.One({"/", "\\", ".", "..", "a", "long component", "...", "C:", "/", "/"});
      return Full(name) == tavrix_test::ModelFull(name, folder) ? "" : name + " in " + folder;
    };
    EXPECT_EQ(tavrix_test::RunTrials(1, 10'000, trial), "");
  }
}

TEST(PosixPath, ObeysTheBuffer) {
  char buffer[300] = "x";
  char* part = buffer;
  EXPECT_EQ(GetFullPathNameA("/abc", 4, buffer, &part), 5u);
  EXPECT_STREQ(buffer, "x");
  EXPECT_EQ(GetFullPathNameA("/abc", 5, buffer, &part), 4u);
  EXPECT_EQ(part, buffer + 1);
  for (const char* open : {"/abc/", "C:"}) {
    GetFullPathNameA(open, 300, buffer, &part);
    EXPECT_EQ(part, nullptr) << open;
  }
  EXPECT_EQ(GetFullPathNameA("/abc", 300, nullptr, &part), 5u);
  EXPECT_EQ(GetFullPathNameA("C:abc", 300, buffer, &part), 5u);
  EXPECT_STREQ(part, "abc");
  for (const char* none : {"", static_cast<const char*>(nullptr)}) {
    SetLastError(0);
    EXPECT_EQ(GetFullPathNameA(none, 300, buffer, nullptr), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_NAME);
    EXPECT_EQ(GetFileAttributesA(none), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
  }
  EXPECT_EQ(Full(std::string(260, 'a')), "");
  EXPECT_EQ(GetLastError(), ERROR_FILENAME_EXCED_RANGE);
  // A name within the limit whose full form is not.
  ASSERT_EQ(chdir("/usr"), 0);
  EXPECT_EQ(Full(std::string(259, 'a')).size(), 264u);
}

}  // namespace
