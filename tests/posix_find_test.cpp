// The search of directories: matching, order, attributes, and that nothing stale is handed out.
#include "platform/posix/directory.h"
#include "tests/support/name_model.h"
#include "tests/support/test.h"

namespace {

using tavrix_test::Matches;
using tavrix_test::Tree;

TEST(PosixMatch, FollowsTheRulesOfTheRealSystem) {
  for (auto [pattern, name] :
       {std::pair("*.*", "noext"), {"a??.txt", "a.txt"}, {"a.*", "a"}, {"*.", "noext"}})
    EXPECT_TRUE(Matches(pattern, name)) << pattern;
  auto trial = [](tavrix_test::Choices& choices) {
    const std::string pattern = choices.Text("aB.*?*?.", 9), name = "a" + choices.Text("aAb.", 8);
    const bool same = Matches(pattern, name) == tavrix_test::ModelMatch(pattern, name);
    return same ? "" : pattern + " " + name;
  };
  EXPECT_EQ(tavrix_test::RunTrials(1, 50'000, trial), "");
  // Stays quick on patterns full of wildcards.
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

// What a search hands out, in its order, a blank behind each name; or "<error>".
std::string List(const std::string& pattern, Ask ask = Ask::kNames) {
  WIN32_FIND_DATAA data;
  HANDLE search = First(pattern, &data, ask);
  if (search == INVALID_HANDLE_VALUE) return "<" + std::to_string(GetLastError()) + ">";
  std::string names = data.cFileName + std::string(" ");
  while (FindNextFileA(search, &data)) names += data.cFileName + std::string(" ");
  EXPECT_FALSE(FindNextFileA(search, &data)) << "the end is for good";
  EXPECT_TRUE(GetLastError() == ERROR_NO_MORE_FILES && FindClose(search));
  return names;
}

// Long enough for the stamps of a directory to count as settled, so that it is kept.
void Settle() { std::this_thread::sleep_for(std::chrono::milliseconds(150)); }

TEST(PosixFind, DescribesEntriesInTheOrderOfTheRealSystem) {
  Tree tree;
  for (const char* name : {"fixed", "FIXED", "Fixed", "back\\slash", "\xE4\xFF", "_", "w*?/inner"})
    tree.File(name);
  tree.File("file", "12345");
  tree.SetReadOnly("file", true);
  tree.Dir("folder");
  for (auto [name, to] : {std::pair("to_folder", "folder"), {"to_file", "file"}, {"loop", "loop"}})
    ASSERT_EQ(symlink(to, tree.Path(name).c_str()), 0);
  for (Ask ask : {Ask::kAll, Ask::kNames})
    EXPECT_EQ(List(tree.Path("*"), ask),
              ". .. file FIXED Fixed fixed folder to_file to_folder w*? _ \xE4\xFF ");
  EXPECT_EQ(List(tree.Path("*"), Ask::kDirectories), ". .. folder w*? ");
  const std::pair<std::string, const char*> kRows[] = {
      {tree.Path() + "\\fixed", "FIXED Fixed fixed "},
      {tree.Path("w*?/?*r"), "inner "},  // a folder may be called that here
      {tree.Path("none*"), "<2>"},
      {tree.Path("missing/*"), "<3>"},
      {tree.Path("loop/*"), "<3>"},
      {tree.Path("mis*ing/*"), "<123>"},
      {std::string(260, 'a'), "<206>"},
      {tree.Path("file/*"), "<267>"}};
  for (const auto& [pattern, names] : kRows) EXPECT_EQ(List(pattern), names) << pattern;
  struct stat facts;
  ASSERT_EQ(stat(tree.Path("file").c_str(), &facts), 0);
  WIN32_FIND_DATAA data;
  memset(&data, 0xAA, sizeof data);
  FindClose(First(tree.Path("to_folder"), &data));
  EXPECT_EQ(data.dwFileAttributes, FILE_ATTRIBUTE_REPARSE_POINT);
  FindClose(First(tree.Path("to_file"), &data));
  EXPECT_EQ(data.dwFileAttributes, FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY);
  EXPECT_TRUE(data.nFileSizeLow == 5 && data.nFileSizeHigh == 0 && !*data.cAlternateFileName);
  const FILETIME& write = data.ftLastWriteTime;
  const uint64_t ticks = uint64_t{write.dwHighDateTime} << 32 | write.dwLowDateTime;
  EXPECT_EQ(ticks / 10'000'000 - 11'644'473'600, static_cast<uint64_t>(facts.st_mtime));
}

TEST(PosixFind, NeverHandsOutAStaleDirectory) {
  Tree tree;
  std::string names;  // of four letters and a blank each
  tavrix_test::Choices choices(3);
  for (int round = 100; round < 500; ++round) {
    if (round % 40 == 39) Settle();  // now and then the directory is kept, and must be let go
    for (int before = round % 3; before > 0; --before) List(tree.Path("d/n*"));
    const std::string name = "n" + std::to_string(round);
    const std::string last = names.empty() ? "" : "d/" + names.substr(names.size() - 5, 4);
    const uint32_t which = names.size() > 10 ? choices.Below(3) : 0;
    if (which == 0) tree.File("d/" + name);
    if (which == 1) tree.Remove(last);
    if (which == 2) tree.Rename(last, "d/" + name);
    if (which != 0) names.resize(names.size() - 5);
    if (which != 1) names += name + " ";
    ASSERT_EQ(List(tree.Path("d/n*")), names);
  }
}

TEST(PosixFind, GoesOnWhenTheGroundMovesAndWithoutDescriptors) {
  Tree tree;
  for (const char* name : {"d/a", "d/b", "d/c"}) tree.File(name);
  WIN32_FIND_DATAA data;
  // The current directory changes under a relative search, and an entry vanishes.
  std::filesystem::current_path(tree.root() / "d");
  HANDLE search = First("?", &data);
  std::filesystem::current_path("/");
  tree.Remove("d/b");
  {
    tavrix_test::Limit none(RLIMIT_NOFILE, 0);
    EXPECT_TRUE(FindNextFileA(search, &data) && strcmp(data.cFileName, "c") == 0);
    posix_layer::ForgetDirectory();
    EXPECT_EQ(List(tree.Path("*")), "<4>");
  }
  FindClose(search);
  // The directory itself goes, and then it is the current one.
  search = First(tree.Path("d/*"), &data);
  std::filesystem::current_path(tree.root() / "d");
  tree.Remove("d");
  while (FindNextFileA(search, &data)) continue;
  EXPECT_TRUE(GetLastError() == ERROR_NO_MORE_FILES && FindClose(search));
  EXPECT_EQ(List("*"), "<3>");
  std::filesystem::current_path("/");
}

// Names of an enumeration through folders and links.
TEST(PosixFind, EnumerationsEnterFoldersAndNoLinks) {
  Tree tree;
  int count = 0;
  auto list = [&](const char* roots, uint32_t flags) {
    std::string names;
    char name[262];
    for (count = 0; XFileList(name, tree.Path(roots).c_str(), nullptr, flags); ++count)
      names += name + tree.Path().size() + std::string(" ");
    return names;
  };
  tree.File("a/1");
  std::filesystem::create_directory_symlink(tree.root(), tree.root() / "a" / "loop");
  EXPECT_EQ(list("*", FL_RECURSE), "/a/1 /a/loop ");
  EXPECT_EQ(list("a/loop/a/1", 0), "/a/loop/a/1 ") << "entered as a root";
  std::string dir = "deep/";
  for (int level = 0; level < 30; ++level) {
    for (const char* file : {"a", "b", "side/c"}) tree.File(dir + file);
    dir += "d/";
  }
  for (const auto& [most, wanted] : {std::pair(1000, 90), {16, 90}, {3, 0}}) {
    tavrix_test::Limit limit(RLIMIT_NOFILE, most);
    list("deep/*", FL_RECURSE);
    EXPECT_EQ(count, wanted) << most << " descriptors";
  }
  EXPECT_EQ(quern::ErrCurrent, nullptr);
}

TEST(PosixFind, RefusesADirectoryThatCannotBeRead) {
  Tree tree;
  tree.Dir("shut");
  std::filesystem::permissions(tree.root(), std::filesystem::perms{0755});
  Settle();
  List(tree.Path("shut/*"));  // kept for this user, and for no other
  int code = tavrix_test::InChild([&] {
    // Root reads everything: a user of no rights asks instead.
    std::filesystem::permissions(tree.root() / "shut", std::filesystem::perms{0});
    if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) return 3;
    return List(tree.Path("shut/*")) == "<5>" ? 0 : 1;
  });
  if (code == 3) GTEST_SKIP() << "rights cannot be given up";
  EXPECT_EQ(code, 0);
}

}  // namespace
