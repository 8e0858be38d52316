// Names of files, temporary ones, and variables of the environment.
#include "tests/support/name_model.h"
#include "tests/support/test.h"

namespace {

using tavrix_test::Tree;

TEST(PosixName, FullNamesAreAsTheModelSays) {
  for (const char* folder : {"/usr", "/"}) {
    ASSERT_EQ(chdir(folder), 0);
    auto trial = [folder](tavrix_test::Choices& choices) -> std::string {
      char full[2 * PATH_MAX];
      std::string name;
      for (uint32_t pieces = choices.Below(9) + 1; pieces > 0; --pieces)
        name += choices.One({"/", "\\", ".", "..", "a", "long \xE4", "...", "C:", "/", "/"});
      GetFullPathNameA(name.c_str(), sizeof full, full, nullptr);
      return full == tavrix_test::ModelFull(name, folder) ? "" : name + " in " + folder;
    };
    EXPECT_EQ(tavrix_test::RunTrials(1, 10'000, trial), "");
  }
}

TEST(PosixName, FullNamesObeyTheBuffer) {
  ASSERT_EQ(chdir("/usr"), 0);
  const std::string longest(260, 'a');
  char buffer[300], *part;
  auto full = [&](const char* name, DWORD size = sizeof buffer) {
    part = strcpy(buffer, "x");
    const DWORD length = GetFullPathNameA(name, size, buffer, &part);
    const std::string text = std::to_string(length) + " " + buffer + " " + (part ? part : "");
    return length == 0 ? "<" + std::to_string(GetLastError()) + ">" : text;
  };
  EXPECT_EQ(full("/abc", 4), "5 x x");
  EXPECT_EQ(full("/abc", 5), "4 /abc abc");
  EXPECT_EQ(full("/abc/"), "5 /abc/ ");
  EXPECT_EQ(full("C:abc"), "5 C:abc abc");
  EXPECT_EQ(full(""), "<123>");
  EXPECT_EQ(full(longest.c_str()), "<206>");
  EXPECT_EQ(full(longest.c_str() + 1, 5), "265 x x") << "over the limit";
}

TEST(PosixName, TemporaryFilesHaveNamesOfTheirOwn) {
  Tree tree;
  tree.File("file");
  tree.Dir("dir");
  const std::string dir = tree.Path("dir");
  char name[MAX_PATH];
  for (int i = 0; i < 300; ++i) {
    const UINT number = GetTempFileNameA(dir.c_str(), i % 2 ? "prefix" : nullptr, 0, name);
    EXPECT_EQ(name, dir + tavrix_test::Line("/%s%X.tmp", i % 2 ? "pre" : "", number));
    EXPECT_TRUE(std::filesystem::is_empty(name));
  }
  std::filesystem::directory_iterator all(dir);
  EXPECT_EQ(std::distance(begin(all), end(all)), 300);
  EXPECT_EQ(GetTempFileNameA("/a\\b/", "x", 0x12345, name), 0x2345u);
  EXPECT_STREQ(name, "/a/b/x2345.tmp");
  // The longest name has 259 bytes.
  EXPECT_EQ(GetTempFileNameA(std::string(247, 'n').c_str(), "pre", 0xFFFF, name), 0xFFFFu);
  const std::tuple<std::string, UINT, int, DWORD> kRows[] = {
      // folder, number, the failure of a call, last error
      {tree.Path("file"), 0, 0, ERROR_DIRECTORY},
      {"", 0, 0, ERROR_DIRECTORY},
      {std::string(248, 'n'), 0xFFFF, 0, ERROR_BUFFER_OVERFLOW},
      {dir, 0, EEXIST, ERROR_FILE_EXISTS},  // under every number
      {dir, 0, EACCES, ERROR_ACCESS_DENIED}};
  for (const auto& [folder, number, failure, error] : kRows) {
    tavrix_test::CallFault fault(failure ? "open" : "", failure);
    EXPECT_EQ(GetTempFileNameA(folder.c_str(), "pre", number, name), 0u) << folder;
    EXPECT_EQ(GetLastError(), error) << folder;
  }
  for (const auto& [variable, folder] : {std::pair(std::string("/a//b/."), "/a/b/"),
                                         {"C:x", "/tmp/"},
                                         {std::string(260, 'n'), "/tmp/"}}) {
    setenv("TMPDIR", variable.c_str(), 1);
    EXPECT_EQ(GetTempPathA(sizeof name, name), strlen(folder));
    EXPECT_STREQ(name, folder);
  }
  // Who may be deleted; of a link itself.
  tree.SetReadOnly("file", true);
  std::filesystem::create_symlink("dir", tree.root() / "link");
  for (const auto& [other, error] : {std::pair("none", ERROR_FILE_NOT_FOUND),
                                     {"dir", ERROR_ACCESS_DENIED},
                                     {"file", ERROR_ACCESS_DENIED},
                                     {"link", ERROR_SUCCESS}}) {
    SetLastError(0);
    EXPECT_EQ(DeleteFileA(tree.Path(other).c_str()), error == ERROR_SUCCESS) << other;
    EXPECT_EQ(GetLastError(), error) << other;
  }
  EXPECT_TRUE(tree.Exists("dir") && tree.Exists("file") && !tree.Exists("link"));
}

// The value, or "<code>" with the last error when there is none.
std::string Get(const char* name, DWORD size = 64) {
  char buffer[64] = "";
  SetLastError(0);
  const DWORD length = GetEnvironmentVariableA(name, buffer, size);
  return length == 0 && GetLastError() != 0 ? "<" + std::to_string(GetLastError()) + ">"
                                            : std::to_string(length) + buffer;
}

// Sets one. All variables that there are then, behind the last error of a failure.
std::string Set(const char* name, const char* value) {
  SetLastError(0);
  std::string all;
  if (!SetEnvironmentVariableA(name, value)) all = std::to_string(GetLastError()) + " ";
  for (char** entry = environ; *entry; ++entry) all += std::string(*entry) + " ";
  return all;
}

TEST(PosixName, VariablesPreferTheExactSpelling) {
  clearenv();
  setenv("Tavrix", "TEST=", 1);
  setenv("path", "/a::/b", 1);
  EXPECT_EQ(Set("TAVRIX", "2"), "Tavrix=2 path=/a::/b ");
  EXPECT_EQ(Set("Path", "/x;/y"), "Tavrix=2 path=/x:/y ");
  EXPECT_EQ(Set("Paths", "/x;/y"), "Tavrix=2 path=/x:/y Paths=/x;/y ");
  EXPECT_EQ(Set("path", nullptr), "Tavrix=2 Paths=/x;/y ");
  EXPECT_EQ(Set("PATH", nullptr), "203 Tavrix=2 Paths=/x;/y ");
  EXPECT_EQ(Set("a=b", "x"), "87 Tavrix=2 Paths=/x;/y ");
  EXPECT_EQ(Set("Q", ""), "Tavrix=2 Paths=/x;/y Q= ");
  setenv("tavrix", "1", 1);
  setenv("PATH", "/a::/b", 1);
  const char* const kRows[][2] = {{"tavrix", "11"},     {"TAVRIX", "12"},    {"Q", "0"},
                                  {"Path", "6/a;;/b"},  {"PATHS", "5/x;/y"}, {"TAVRI", "<203>"},
                                  {"TAVRIXS", "<203>"}, {nullptr, "<203>"}};
  for (auto [name, value] : kRows) EXPECT_EQ(Get(name), value);
  EXPECT_EQ(Get("PATH", 6), "7") << "the size that would do";
  EXPECT_EQ(Get("PATH", 7), "6/a;;/b");
}

}  // namespace
