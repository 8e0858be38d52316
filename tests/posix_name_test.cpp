// Names of files, temporary ones, and variables of the environment.
#include "tests/support/name_model.h"
#include "tests/support/test.h"

namespace {

char buffer[2 * PATH_MAX];

// What a call has returned and put into the buffer; or "<error>".
std::string Told(DWORD result) {
  if (result != 0) return std::to_string(result) + " " + buffer;
  return "<" + std::to_string(GetLastError()) + ">";
}

TEST(PosixName, FullNamesAreAsTheModelSaysAndObeyTheBuffer) {
  for (const char* folder : {"/", "/usr"}) {
    ASSERT_EQ(chdir(folder), 0);
    auto trial = [folder](tavrix_test::Choices& choices) -> std::string {
      std::string name;
      for (uint32_t pieces = choices.Below(9) + 1; pieces > 0; --pieces)
        name += choices.One({"/", "\\", ".", "..", "a", "long \xE4", "...", "C:", "/", "/"});
      GetFullPathNameA(name.c_str(), sizeof buffer, buffer, nullptr);
      return buffer == tavrix_test::ModelFull(name, folder) ? "" : name + " in " + folder;
    };
    EXPECT_EQ(tavrix_test::RunTrials(1, 10'000, trial), "");
  }
  auto full = [](const std::string& name, DWORD size) {
    char* part = strcpy(buffer, "x");
    const std::string told = Told(GetFullPathNameA(name.c_str(), size, buffer, &part));
    return told + " " + (part ? part : "");
  };
  EXPECT_EQ(full("/abc", 4), "5 x x");
  EXPECT_EQ(full("/abc", 5), "4 /abc abc");
  EXPECT_EQ(full("/abc/", 300), "5 /abc/ ");
  EXPECT_EQ(full("C:abc", 300), "5 C:abc abc");
  EXPECT_EQ(full(std::string(260, 'a'), 300), "<206> x");
  EXPECT_EQ(full(std::string(259, 'a'), 5), "265 x x") << "over the limit";
}

TEST(PosixName, TemporaryFilesHaveNamesOfTheirOwn) {
  tavrix_test::Tree tree;
  tree.Dir("dir");
  const std::string dir = tree.Path("dir");
  for (int i = 0; i < 300; ++i) {
    // As the library calls it: the name comes directly behind the folder's text.
    char expected[16], *name = strcpy(buffer, dir.c_str()) + dir.size();
    const UINT number = GetTempFileNameA(buffer, i % 2 ? "prefix" : nullptr, 0, name);
    snprintf(expected, sizeof expected, "/%s%X.tmp", i % 2 ? "pre" : "", number);
    EXPECT_EQ(name, dir + expected);
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 300);
  auto temporary = [](const std::string& folder, UINT number) {
    return Told(GetTempFileNameA(folder.c_str(), "pre", number, buffer));
  };
  EXPECT_EQ(temporary("/a\\b/", 0x12345), "9029 /a/b/pre2345.tmp");
  EXPECT_EQ(temporary(std::string(247, 'n'), 0xFFFF).size(), 6u + 259);
  EXPECT_EQ(temporary(std::string(248, 'n'), 0xFFFF), "<111>");
  EXPECT_EQ(temporary(tree.Path("none"), 0), "<267>");
  setenv("TMPDIR", "/a//b/.", 1);
  EXPECT_EQ(Told(GetTempPathA(sizeof buffer, buffer)), "5 /a/b/");
  setenv("TMPDIR", std::string(260, 'n').c_str(), 1);
  EXPECT_EQ(Told(GetTempPathA(sizeof buffer, buffer)), "5 /tmp/");
}

TEST(PosixName, VariablesPreferTheExactSpelling) {
  clearenv();
  setenv("Tavrix", "TEST=", 1);
  auto set = [](const char* name, const char* value) {
    std::string all = SetEnvironmentVariableA(name, value) ? "" : Told(0);
    for (char** entry = environ; *entry; ++entry) all += std::string(" ") + *entry;
    return all;
  };
  EXPECT_EQ(set("path", "/a;;/b"), " Tavrix=TEST= path=/a::/b");
  EXPECT_EQ(set("TAVRIX", "2"), " Tavrix=2 path=/a::/b");
  EXPECT_EQ(set("Paths", "/x;/y"), " Tavrix=2 path=/a::/b Paths=/x;/y");
  EXPECT_EQ(set("PATHs", nullptr), " Tavrix=2 path=/a::/b");
  EXPECT_EQ(set("PATHs", nullptr), "<203> Tavrix=2 path=/a::/b");
  EXPECT_EQ(set("a=b", ""), "<87> Tavrix=2 path=/a::/b");
  EXPECT_EQ(set("tavrix", ""), " Tavrix= path=/a::/b");
  setenv("tavrix", "1", 1);
  std::string values;
  for (const auto& [name, size] : {std::pair("tavrix", 16u),
                                   {"Tavrix", 16},
                                   {"PATH", 6},
                                   {"PATH", 7},
                                   {"TAVRI", 16},
                                   {"TAVRIXS", 16},
                                   {"Tavrix=", 16}}) {
    SetLastError(*strcpy(buffer, ""));
    values += Told(GetEnvironmentVariableA(name, buffer, size)) + "; ";
  }
  EXPECT_EQ(values, "1 1; <0>; 7 ; 6 /a;;/b; <203>; <203>; <203>; ");
}

}  // namespace
