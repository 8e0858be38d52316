// The search of directories: matching, order, attributes, and that nothing stale is handed out.
#include "platform/posix/directory.h"
#include "tests/support/name_model.h"
#include "tests/support/test.h"

namespace {

using tavrix_test::Matches;
using tavrix_test::Tree;
using Names = std::vector<std::string>;

WIN32_FIND_DATAA data;  // of the search

TEST(PosixMatch, FollowsTheRulesOfTheRealSystem) {
  for (const auto& [pattern, yes, no] : {std::tuple("a??.*", "a.txt", "axyz.t"),
                                         {"*.txt", "a.b.TXT", "a.tx"},
                                         {"*.", "no\xE4xt", "a.b"}})
    EXPECT_TRUE(Matches(pattern, yes) && !Matches(pattern, no)) << pattern;
  auto trial = [](tavrix_test::Choices& choices) {
    const std::string pattern = choices.Text("aB.*?*?.", 9), name = "a" + choices.Text("aAb.", 8);
    const bool same = Matches(pattern, name) == tavrix_test::ModelMatch(pattern, name);
    return same ? "" : pattern + " " + name;
  };
  EXPECT_EQ(tavrix_test::RunTrials(1, 50'000, trial), "");
  // Stays quick on patterns full of wildcards.
  std::string pattern;
  for (int i = 0; i < 60; ++i) pattern += "*a?";
  const auto begun = std::chrono::steady_clock::now();
  for (const char* start : {"", "*.?"})
    EXPECT_FALSE(Matches(start + pattern + "b", std::string(255, 'a')));
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(2));
}

// What a search for names hands out, in its order; or "<error>".
Names List(const std::string& pattern, bool directories = false) {
  Names names;
  HANDLE search = FindFirstName(pattern.c_str(), &data, directories);
  if (search == INVALID_HANDLE_VALUE) return {"<" + std::to_string(GetLastError()) + ">"};
  do {
    names.push_back(data.cFileName);
  } while (FindNextFileA(search, &data));
  EXPECT_TRUE(!FindNextFileA(search, &data) && GetLastError() == ERROR_NO_MORE_FILES);
  EXPECT_TRUE(FindClose(search));
  return names;
}

// Long enough for the stamps of a directory to count as settled, so that it is kept.
void Settle() { std::this_thread::sleep_for(std::chrono::milliseconds(150)); }

TEST(PosixFind, DescribesEntriesInTheOrderOfTheRealSystem) {
  Tree tree;
  tree.File("file", "12345");
  for (const char* name : {"fixed", "FIXED", "back\\slash", "\xE4\xFF", "_", "what*?/inner"})
    tree.File(name);
  tree.SetReadOnly("file", true);
  for (const auto& [to, link] :
       {std::pair("what*?", "lead"), {"file", "leaf"}, {"nothing", "lost"}, {"loop", "loop"}})
    ASSERT_EQ(symlink(to, tree.Path(link).c_str()), 0);
  EXPECT_EQ(List(tree.Path("*")), (Names{".", "..", "file", "FIXED", "fixed", "lead", "leaf",
                                         "what*?", "_", "\xE4\xFF"}));
  EXPECT_EQ(List(tree.Path("*"), true), (Names{".", "..", "what*?"}));
  EXPECT_EQ(List(tree.Path("what*?/?*r")), Names{"inner"}) << "a folder may be called that here";
  std::string errors, facts;
  for (const char* bad : {"/none*", "/", "/missing/*", "/loop/*", "/mis*ing/*", "/file/*"})
    errors += List(tree.Path() + bad)[0];
  EXPECT_EQ(errors, "<2><2><3><3><123><267>");
  for (const char* name : {"file", "leaf", "lead", "what??"}) {
    memset(&data, 0xAA, sizeof data);
    FindClose(FindFirstFileA(tree.Path(name).c_str(), &data));
    facts += std::to_string(data.dwFileAttributes) + " " + std::to_string(data.nFileSizeLow) + " " +
             std::to_string(data.nFileSizeHigh) + data.cAlternateFileName + "; ";
  }
  EXPECT_EQ(facts, "33 5 0; 33 5 0; 1024 0 0; 16 0 0; ");
}

TEST(PosixFind, NeverHandsOutAStaleDirectory) {
  Tree tree;
  auto trial = [&tree](tavrix_test::Choices& choices) {
    Names names;
    for (int round = 2000; round < 2400; ++round) {
      if (round % 40 == 39) Settle();  // now and then the directory is kept, and must be let go
      for (int before = round % 3; before > 0; --before) List(tree.Path("d/n*"));
      const std::string name = "n" + std::to_string(round);
      const uint32_t which = names.size() > 2 ? choices.Below(3) : 0;
      if (which == 0) tree.File("d/" + name);
      if (which == 1) tree.Remove("d/" + names.back());
      if (which == 2) tree.Rename("d/" + names.back(), "d/" + name);
      if (which != 0) names.pop_back();
      if (which != 1) names.push_back(name);
      if (List(tree.Path("d/n*")) != names) return name;
    }
    return std::string();
  };
  EXPECT_EQ(tavrix_test::RunTrials(3, 3, trial), "");
  Settle();
  List(tree.Path("d/n*"));
  tree.Rename("d", "old");
  tree.File("d/new");
  EXPECT_EQ(List(tree.Path("d/n*")), (Names{"new"})) << "another directory of this name";
}

TEST(PosixFind, GoesOnWhenTheGroundMovesAndWithoutDescriptors) {
  Tree tree;
  for (const char* name : {"d/a", "d/b", "d/c"}) tree.File(name);
  // The current directory changes under a relative search, and an entry vanishes.
  ASSERT_EQ(chdir(tree.Path("d").c_str()), 0);
  HANDLE search = FindFirstFileA("?", &data);
  ASSERT_EQ(chdir("/"), 0);
  tree.Remove("d/b");
  {
    tavrix_test::Limit none(RLIMIT_NOFILE, 0);
    EXPECT_TRUE(FindNextFileA(search, &data) && data.cFileName == std::string("c"));
    posix_layer::ForgetDirectory();
    EXPECT_EQ(List(tree.Path("*")), Names{"<4>"});
  }
  // The directory itself goes, and it is the current one.
  ASSERT_EQ(chdir(tree.Path("d").c_str()), 0);
  tree.Remove("d");
  EXPECT_TRUE(!FindNextFileA(search, &data) && FindClose(search));
  EXPECT_EQ(List("*"), Names{"<3>"});
}

TEST(PosixFind, EnumerationsEnterFoldersAndNoLinks) {
  Tree tree;
  auto list = [&tree](const char* roots) {
    Names names;
    char name[262];
    while (XFileList(name, tree.Path(roots).c_str(), nullptr, FL_RECURSE)) names.push_back(name);
    return names;
  };
  tree.File("a/1");
  std::filesystem::create_directory_symlink(tree.root(), tree.root() / "a" / "loop");
  EXPECT_EQ(list("*"), (Names{tree.Path("a/1"), tree.Path("a/loop")}));
  std::string dir = "deep/";
  for (int level = 0; level < 30; ++level, dir += "d/")
    for (const char* file : {"a", "side/c"}) tree.File(dir + file);
  tavrix_test::Limit limit(RLIMIT_NOFILE, 16);
  EXPECT_EQ(list("deep/*").size(), 60u);
}

}  // namespace
