// The search of directories: matching, order, attributes, and that nothing stale is handed out.

#include "platform/posix/directory.h"
#include "tests/support/name_model.h"
#include "tests/support/test.h"

namespace {

using tavrix_test::Matches;
using tavrix_test::Tree;
using Names = std::vector<std::string>;

TEST(PosixMatch, FollowsTheRulesOfTheRealSystem) {
  constexpr const char* kRows[][3] = {
      // pattern, a name that it finds, one that it does not
      {"*.*", "noext", nullptr}, {"*.txt", "a.b.TXT", "a.tx"}, {"a??.txt", "a.txt", "axyz.t"},
      {"a.*", "a", "ab"},        {"*.", "noext", "a.b"},       {"a?b", "axb", "a.b"},
  };
  for (const auto& [pattern, yes, no] : kRows) {
    EXPECT_TRUE(Matches(pattern, yes)) << pattern << " " << yes;
    EXPECT_FALSE(no && Matches(pattern, no)) << pattern << " " << no;
  }
}

TEST(PosixMatch, AgreesWithTheModelOnRandomNames) {
  auto trial = [](tavrix_test::Choices& choices) {
    const std::string pattern = choices.Text("aB.*?*?.", 9), name = "a" + choices.Text("aAb.", 8);
    return Matches(pattern, name) == tavrix_test::ModelMatch(pattern, name) ? ""
                                                                            : pattern + " " + name;
  };
  EXPECT_EQ(tavrix_test::RunTrials(1, 50'000, trial), "");
}

TEST(PosixMatch, StaysQuickOnPatternsFullOfWildcards) {
  std::string pattern;
  for (int i = 0; i < 60; ++i) pattern += "*a?";
  auto begun = std::chrono::steady_clock::now();
  for (const char* start : {"", "*.?"})
    EXPECT_FALSE(Matches(start + pattern + "b", std::string(255, 'a')));
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(2));
}

enum class Ask { kAll, kNames, kDirectories };

HANDLE First(const std::string& pattern, WIN32_FIND_DATAA* data, Ask ask = Ask::kAll) {
  return ask == Ask::kAll ? FindFirstFileA(pattern.c_str(), data)
                          : FindFirstName(pattern.c_str(), data, ask == Ask::kDirectories);
}

// What a search hands out, in its order.
Names List(const std::string& pattern, Ask ask = Ask::kNames) {
  Names names;
  WIN32_FIND_DATAA data;
  HANDLE search = First(pattern, &data, ask);
  if (search == INVALID_HANDLE_VALUE) return names;
  do {
    names.push_back(data.cFileName);
  } while (FindNextFileA(search, &data));
  EXPECT_FALSE(FindNextFileA(search, &data)) << "the end is for good";
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
  EXPECT_TRUE(FindClose(search));
  return names;
}

// Of what is found first.
DWORD Attributes(const std::string& pattern, Ask ask = Ask::kAll) {
  WIN32_FIND_DATAA data;
  HANDLE search = First(pattern, &data, ask);
  return search != INVALID_HANDLE_VALUE && FindClose(search) ? data.dwFileAttributes : 0;
}

DWORD FirstError(const std::string& pattern) {
  SetLastError(0);
  Attributes(pattern);
  return GetLastError();
}

// Long enough for the stamps of a directory to count as settled, so that it is kept.
void Settle() { std::this_thread::sleep_for(std::chrono::milliseconds(150)); }

TEST(PosixFind, TellsWhyNothingWasFound) {
  Tree tree;
  tree.File("file");
  const std::pair<DWORD, Names> kRows[] = {
      {ERROR_FILE_NOT_FOUND, {tree.Path("none*"), tree.Path() + "/", std::string(255, 'a')}},
      {ERROR_PATH_NOT_FOUND, {tree.Path("missing/*"), tree.Path("file/deeper/*"), ""}},
      {ERROR_DIRECTORY, {tree.Path("file/*")}},
      {ERROR_INVALID_NAME, {tree.Path("mis*ing/*")}},
      {ERROR_FILENAME_EXCED_RANGE, {std::string(260, 'a')}},
  };
  for (const auto& [error, patterns] : kRows) {
    for (const std::string& pattern : patterns) EXPECT_EQ(FirstError(pattern), error) << pattern;
  }
}

TEST(PosixFind, DescribesEntries) {
  Tree tree;
  tree.File("file", "12345");
  for (const char* name : {"fixed", "FIXED", "Fixed", "back\\slash"}) tree.File(name);
  tree.SetReadOnly("FIXED", true);
  tree.Dir("folder");
  tree.Dir("what*?/inner");
  for (const char* to : {"folder", "file", "nothing"}) {
    ASSERT_EQ(symlink(to, tree.Path(std::string("to_") + to).c_str()), 0);
  }
  ASSERT_EQ(symlink("loop", tree.Path("loop").c_str()), 0);
  EXPECT_EQ(FirstError(tree.Path("loop/*")), ERROR_PATH_NOT_FOUND);

  EXPECT_EQ(Attributes(tree.Path("FIXED")), FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(Attributes(tree.Path("folder")), FILE_ATTRIBUTE_DIRECTORY);
  for (Ask ask : {Ask::kAll, Ask::kNames}) {
    EXPECT_EQ(Attributes(tree.Path("to_folder"), ask), FILE_ATTRIBUTE_REPARSE_POINT);
    EXPECT_EQ(Attributes(tree.Path("to_file"), ask), FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(List(tree.Path("*"), ask), (Names{".", "..", "file", "FIXED", "Fixed", "fixed",
                                                "folder", "to_file", "to_folder", "what*?"}));
  }
  EXPECT_EQ(List(tree.Path("*"), Ask::kDirectories), (Names{".", "..", "folder", "what*?"}));
  EXPECT_EQ(List(tree.Path() + "\\fixed"), (Names{"FIXED", "Fixed", "fixed"}));
  EXPECT_EQ(List(tree.Path("what*?/?*r")), (Names{"inner"})) << "a folder may be called that here";

  struct stat facts;
  ASSERT_EQ(stat(tree.Path("file").c_str(), &facts), 0);
  WIN32_FIND_DATAA data;
  memset(&data, 0xAA, sizeof data);
  FindClose(First(tree.Path("file"), &data));
  EXPECT_EQ(data.nFileSizeLow, 5u);
  EXPECT_EQ(data.nFileSizeHigh | data.dwReserved0 | data.dwReserved1, 0u);
  EXPECT_EQ(data.cAlternateFileName[0], 0);
  uint64_t ticks =
      uint64_t{data.ftLastWriteTime.dwHighDateTime} << 32 | data.ftLastWriteTime.dwLowDateTime;
  EXPECT_EQ(ticks / 10'000'000 - 11'644'473'600, static_cast<uint64_t>(facts.st_mtime));
}

TEST(PosixFind, NeverHandsOutAStaleDirectory) {
  Tree tree;
  std::mt19937 random(3);
  Names names = {"n0", "n1"};
  for (const std::string& name : names) tree.File("d/" + name);
  for (int round = 2000; round < 2400; ++round) {
    if (round % 40 == 39) Settle();  // now and then the directory is kept, and must be let go
    for (int before = round % 3; before > 0; --before) List(tree.Path("d/n*"));
    std::string name = "n" + std::to_string(round);
    size_t which = names.size() > 2 ? random() % 3 : 0;
    if (which == 0) tree.File("d/" + name);
    if (which == 1) tree.Remove("d/" + names.back());
    if (which == 2) tree.Rename("d/" + names.back(), "d/" + name);
    if (which != 0) names.pop_back();
    if (which != 1) names.push_back(name);
    ASSERT_EQ(List(tree.Path("d/n*")), names) << round;
  }
  Settle();
  List(tree.Path("d/n*"));
  tree.Rename("d", "old");
  tree.File("d/new");
  EXPECT_EQ(List(tree.Path("d/n*")), (Names{"new"})) << "another directory of this name";
}

TEST(PosixFind, GoesOnWhenTheGroundMoves) {
  Tree tree;
  for (const char* name : {"d/a", "d/b", "d/c"}) tree.File(name);
  WIN32_FIND_DATAA data;
  // The current directory changes under a relative search, and an entry vanishes.
  ASSERT_EQ(chdir(tree.Path("d").c_str()), 0);
  HANDLE search = First("?", &data);
  EXPECT_STREQ(data.cFileName, "a");
  ASSERT_EQ(chdir("/"), 0);
  tree.Remove("d/b");
  ASSERT_TRUE(FindNextFileA(search, &data));
  EXPECT_STREQ(data.cFileName, "c");
  FindClose(search);
  // The directory itself goes, and then it is the current one.
  search = First(tree.Path("d/*"), &data);
  ASSERT_EQ(chdir(tree.Path("d").c_str()), 0);
  tree.Remove("d");
  while (FindNextFileA(search, &data)) {
  }
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
  EXPECT_TRUE(FindClose(search));
  EXPECT_EQ(FirstError("*"), ERROR_PATH_NOT_FOUND);
  ASSERT_EQ(chdir("/"), 0);
}

TEST(PosixFind, HoldsNoDescriptorAndSaysWhenThereIsNone) {
  Tree tree;
  for (const char* name : {"a", "b"}) tree.File(name);
  WIN32_FIND_DATAA data;
  HANDLE search = First(tree.Path("?"), &data);
  {
    tavrix_test::Limit none(RLIMIT_NOFILE, 0);
    EXPECT_TRUE(FindNextFileA(search, &data));
    EXPECT_STREQ(data.cFileName, "b");
    posix_layer::ForgetDirectory();
    EXPECT_EQ(FirstError(tree.Path("*")), ERROR_TOO_MANY_OPEN_FILES);
  }
  EXPECT_TRUE(FindClose(search));
  int next = dup(0);
  for (int i = 0; i < 100; ++i) FindClose(First(tree.Path("?"), &data));
  EXPECT_EQ(dup(0), next + 1) << "none is left open";
}

TEST(PosixFind, RefusesADirectoryThatCannotBeRead) {
  Tree tree;
  tree.Dir("shut");
  ASSERT_EQ(chmod(tree.root().c_str(), 0755), 0);
  ASSERT_EQ(chmod(tree.Path("shut").c_str(), 0700), 0);
  Settle();
  List(tree.Path("shut/*"));  // kept for this user, and for no other
  int code = tavrix_test::InChild([&] {
    // Root reads everything: a user of no rights asks instead.
    int result =
        geteuid() == 0 ? setresuid(65534, 65534, 65534) : chmod(tree.Path("shut").c_str(), 0);
    return result != 0 ? 3 : FirstError(tree.Path("shut/*")) != ERROR_ACCESS_DENIED;
  });
  if (code == 3) GTEST_SKIP() << "rights cannot be given up";
  EXPECT_EQ(code, 0);
}

}  // namespace
