// The search of directories: matching, order, attributes, and that nothing stale is handed out.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/directory.h"
#include "platform/posix/match.h"
#include "platform/win32.h"
#include "tests/support/tree.h"

namespace {

using tavrix_test::Tree;
using Names = std::vector<std::string>;

// --- matching ------------------------------------------------------------------------------------

bool Matches(const std::string& pattern, const std::string& name) {
  posix_layer::UpperTable upper = posix_layer::CurrentUpper();
  posix_layer::NamePattern compiled;
  posix_layer::CompilePattern(pattern.data(), static_cast<uint32_t>(pattern.size()), upper,
                              &compiled);
  return posix_layer::MatchName(compiled, name.data(), static_cast<uint32_t>(name.size()), upper);
}

// The rules by trying everything, straight from the texts.
struct Model {
  std::string pattern, name;

  bool IsOpenDot(size_t p) const {
    return p < pattern.size() && pattern[p] == '.' &&
           (p + 1 == pattern.size() || strchr("*?", pattern[p + 1]));
  }

  bool Match(size_t p = 0, size_t n = 0) const {
    if (p == pattern.size()) return n == name.size();
    if (pattern[p] == '*') {
      bool stops = IsOpenDot(p + 1);
      for (size_t end = n;; ++end) {
        if (Match(p + 1, end)) return true;
        if (end == name.size() || (stops && end == name.rfind('.'))) return false;
      }
    }
    if (n == name.size()) return (pattern[p] == '?' || IsOpenDot(p)) && Match(p + 1, n);
    if (pattern[p] == '?') return Match(p + 1, name[n] == '.' ? n : n + 1);
    return toupper(pattern[p]) == toupper(name[n]) && Match(p + 1, n + 1);
  }
};

TEST(PosixMatch, FollowsTheRulesOfTheRealSystem) {
  struct Row {
    const char *pattern, *yes, *no;
  };
  constexpr Row kRows[] = {
      {"*", "anything", nullptr},
      {"*.*", "noext", nullptr},
      {"*.*", ".", nullptr},
      {"a*", "ALPHA", "."},
      {"*.txt", "a.b.TXT", "a.tx"},
      {"*.txt", ".txt", "txt"},
      {"a??.txt", "a.txt", "axyz.t"},
      {"a??", "a", "abcd"},
      {"?", "a", "ab"},
      {"a.*", "a", "ab"},
      {"a.*", "a.b.c", "ba.c"},
      {"*.", "noext", "a.b"},
      {"*.?", "a.b", "a.bc"},
      {"a.", "a", "a.b"},
      {"a.", "a.", "aa"},
      {".", ".", ".."},
      {"..", "..", "."},
      {"a?b", "axb", "a.b"},
      {"*a*b*c*", "xaxbxcx", "acb"},
      {"x*x", "xx", "x"},
      {"**.?", "a.bc", nullptr},
      {"*a*.?", "xa.ya", "xb.yb"},
      {".*", ".profile", "a.b"},
      {"*_*.c", "a_b.c", "ab.c"},
  };
  for (const Row& row : kRows) {
    EXPECT_TRUE(Matches(row.pattern, row.yes)) << row.pattern << " " << row.yes;
    if (!row.no) continue;
    EXPECT_FALSE(Matches(row.pattern, row.no)) << row.pattern << " " << row.no;
  }
}

TEST(PosixMatch, AgreesWithTheModelOnRandomNames) {
  std::mt19937 random(1);
  auto text = [&](const char* letters, size_t longest) {
    std::string result(random() % longest + 1, 0);
    for (char& c : result) c = letters[random() % strlen(letters)];
    return result;
  };
  int matched = 0;
  for (int i = 0; i < 300000; ++i) {
    std::string pattern = text("aB.*?*?.", 9), name = text("aAb.", 9);
    if (pattern == "*.*" || pattern == "." || pattern == "..") continue;
    bool expected = Model{pattern, name}.Match();
    ASSERT_EQ(Matches(pattern, name), expected) << pattern << " " << name;
    matched += expected;
  }
  EXPECT_GT(matched, 10000);
}

TEST(PosixMatch, StaysQuickOnPatternsFullOfWildcards) {
  std::string pattern, name(255, 'a');
  for (int i = 0; i < 60; ++i) pattern += "*a?";
  auto begun = std::chrono::steady_clock::now();
  for (int i = 0; i < 100; ++i) {
    EXPECT_FALSE(Matches(pattern + "b", name));
    EXPECT_FALSE(Matches("*.?" + pattern + "b", name));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(5));
}

// --- searching -----------------------------------------------------------------------------------

enum class Ask { kAll, kNames, kDirectories };

HANDLE First(const std::string& pattern, WIN32_FIND_DATAA* data, Ask ask) {
  return ask == Ask::kAll ? FindFirstFileA(pattern.c_str(), data)
                          : FindFirstName(pattern.c_str(), data, ask == Ask::kDirectories);
}

// What a search hands out, in its order; "." and ".." are left out.
Names List(const std::string& pattern, Ask ask = Ask::kNames) {
  Names names;
  WIN32_FIND_DATAA data;
  HANDLE search = First(pattern, &data, ask);
  if (search == INVALID_HANDLE_VALUE) return names;
  do {
    if (strcmp(data.cFileName, ".") != 0 && strcmp(data.cFileName, "..") != 0) {
      names.push_back(data.cFileName);
    }
  } while (FindNextFileA(search, &data));
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
  EXPECT_FALSE(FindNextFileA(search, &data)) << "the end is for good";
  EXPECT_TRUE(FindClose(search));
  return names;
}

DWORD FirstError(const std::string& pattern, Ask ask = Ask::kAll) {
  WIN32_FIND_DATAA data;
  SetLastError(0);
  HANDLE search = First(pattern, &data, ask);
  if (search == INVALID_HANDLE_VALUE) return GetLastError();
  FindClose(search);
  return 0;
}

DWORD Attributes(const std::string& path, Ask ask = Ask::kAll) {
  WIN32_FIND_DATAA data;
  HANDLE search = First(path, &data, ask);
  if (search == INVALID_HANDLE_VALUE) return INVALID_FILE_ATTRIBUTES;
  FindClose(search);
  return data.dwFileAttributes;
}

std::string UpperOf(std::string text) {
  for (char& c : text) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  return text;
}

// Long enough for the stamps of a directory to count as settled, so that it is kept.
void Settle() { std::this_thread::sleep_for(std::chrono::milliseconds(150)); }

TEST(PosixFind, GivesDotsFirstAndNamesInCaseBlindOrder) {
  Tree tree;
  std::mt19937 random(2);
  Names expected;
  while (expected.size() < 500) {
    std::string name = "Common_";
    for (size_t length = random() % 12; name.size() < 7 + length;) {
      name += "abAB_.~\xE4"[random() % 8];
    }
    if (tree.Exists(name)) continue;
    tree.File(name);
    expected.push_back(name);
  }
  std::sort(expected.begin(), expected.end(), [](const std::string& a, const std::string& b) {
    return UpperOf(a) != UpperOf(b) ? UpperOf(a) < UpperOf(b) : a < b;
  });
  for (Ask ask : {Ask::kAll, Ask::kNames}) {
    EXPECT_EQ(List(tree.Path("*"), ask), expected);
    EXPECT_EQ(List(tree.Path("*.*"), ask), expected);
  }
  Names some;
  for (const std::string& name : expected) {
    if (Model{"*a*b", name}.Match()) some.push_back(name);
  }
  EXPECT_EQ(List(tree.Path("*a*b")), some);

  WIN32_FIND_DATAA data;
  HANDLE search = FindFirstFileA(tree.Path("*").c_str(), &data);
  ASSERT_NE(search, INVALID_HANDLE_VALUE);
  EXPECT_STREQ(data.cFileName, ".");
  EXPECT_EQ(data.dwFileAttributes, FILE_ATTRIBUTE_DIRECTORY);
  ASSERT_TRUE(FindNextFileA(search, &data));
  EXPECT_STREQ(data.cFileName, "..");
  FindClose(search);
}

TEST(PosixFind, ReadsADirectoryOfAnySize) {
  Tree tree;
  Names expected;
  for (int i = 0; i < 3000; ++i) {
    char name[80];
    snprintf(name, sizeof name, "name_that_takes_some_room_in_the_directory_%05d", i);
    tree.File(name);
    expected.push_back(name);
  }
  EXPECT_EQ(List(tree.Path("*")), expected);
}

TEST(PosixFind, FindsEverySpellingOfAPlainName) {
  Tree tree;
  for (const char* name : {"readme", "README", "ReadMe", "readme.txt"}) tree.File(name);
  EXPECT_EQ(List(tree.Path("ReadMe")), (Names{"README", "ReadMe", "readme"}));
  std::string windows = tree.Path("*.TXT");
  std::replace(windows.begin(), windows.end(), '/', '\\');
  EXPECT_EQ(List(windows), (Names{"readme.txt"}));
}

TEST(PosixFind, TellsWhyNothingWasFound) {
  Tree tree;
  tree.File("file");
  EXPECT_EQ(FirstError(tree.Path("nothing*")), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(FirstError(tree.Path() + "/"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(FirstError(tree.Path("missing/*")), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(FirstError(tree.Path("file/*")), ERROR_DIRECTORY);
  EXPECT_EQ(FirstError(tree.Path("file/deeper/*")), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(FirstError(tree.Path("mis*ing/*")), ERROR_INVALID_NAME);
  EXPECT_EQ(FirstError(""), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(FirstError(std::string(260, 'a')), ERROR_FILENAME_EXCED_RANGE);
  EXPECT_EQ(FirstError(std::string(259, 'a')), ERROR_FILE_NOT_FOUND);

  WIN32_FIND_DATAA data;
  HANDLE search = FindFirstFileA(tree.Path("file").c_str(), &data);
  EXPECT_FALSE(CloseHandle(search)) << "a search is closed with FindClose alone";
  EXPECT_TRUE(FindClose(search));
  SetLastError(0);
  EXPECT_FALSE(FindNextFileA(search, &data));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(FindClose(search));
  EXPECT_FALSE(FindClose(INVALID_HANDLE_VALUE));
}

TEST(PosixFind, DescribesEntries) {
  Tree tree;
  tree.File("file", "12345");
  tree.File("fixed");
  tree.Dir("folder");
  tree.Dir("what*?/inner");
  tree.SetReadOnly("fixed", true);
  tree.File("back\\slash");
  ASSERT_EQ(symlink("folder", tree.Path("to_folder").c_str()), 0);
  ASSERT_EQ(symlink("file", tree.Path("to_file").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", tree.Path("to_nothing").c_str()), 0);
  ASSERT_EQ(symlink("loop", tree.Path("loop").c_str()), 0);

  EXPECT_EQ(Attributes(tree.Path("file")), FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(Attributes(tree.Path("fixed")), FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(Attributes(tree.Path("folder")), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(Attributes(tree.Path("to_folder")), FILE_ATTRIBUTE_REPARSE_POINT);
  EXPECT_EQ(Attributes(tree.Path("to_file")), FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(Attributes(tree.Path("to_folder"), Ask::kNames), FILE_ATTRIBUTE_REPARSE_POINT);

  Names everything = {"file", "fixed", "folder", "to_file", "to_folder", "what*?"};
  EXPECT_EQ(List(tree.Path("*"), Ask::kAll), everything);
  EXPECT_EQ(List(tree.Path("*"), Ask::kNames), everything);
  EXPECT_EQ(List(tree.Path("*"), Ask::kDirectories), (Names{"folder", "what*?"}));
  EXPECT_EQ(List(tree.Path("what*?/*")), (Names{"inner"})) << "a folder may be called that here";

  struct stat facts;
  ASSERT_EQ(stat(tree.Path("file").c_str(), &facts), 0);
  WIN32_FIND_DATAA data;
  memset(&data, 0xAA, sizeof data);
  FindClose(FindFirstFileA(tree.Path("file").c_str(), &data));
  EXPECT_EQ(data.nFileSizeLow, 5u);
  EXPECT_EQ(data.nFileSizeHigh, 0u);
  EXPECT_EQ(data.dwReserved0 | data.dwReserved1, 0u);
  EXPECT_EQ(data.cAlternateFileName[0], 0);
  uint64_t ticks =
      uint64_t{data.ftLastWriteTime.dwHighDateTime} << 32 | data.ftLastWriteTime.dwLowDateTime;
  EXPECT_EQ(ticks / 10'000'000 - 11'644'473'600, static_cast<uint64_t>(facts.st_mtime));
}

TEST(PosixFind, NeverHandsOutAStaleDirectory) {
  Tree tree;
  tree.File("d/aa");
  std::mt19937 random(3);
  Names names = {"aa"};
  for (int round = 0; round < 400; ++round) {
    if (round % 40 == 39) Settle();  // now and then the directory is kept, and must be let go
    for (int before = round % 3; before > 0; --before) {
      ASSERT_EQ(List(tree.Path("d/*")), names) << round;
    }
    size_t which = random() % 3;
    if (which == 0 || names.size() < 3) {
      std::string name = "n" + std::to_string(1000 + round);
      tree.File("d/" + name);
      names.push_back(name);
    } else if (which == 1) {
      tree.Remove("d/" + names.back());
      names.pop_back();
    } else {
      std::string name = "n" + std::to_string(1000 + round);
      tree.Rename("d/" + names.back(), "d/" + name);
      names.back() = name;
    }
    ASSERT_EQ(List(tree.Path("d/*")), names) << round;
  }
  // Another directory under the same name.
  Settle();
  List(tree.Path("d/*"));
  tree.Rename("d", "old");
  tree.File("d/new");
  EXPECT_EQ(List(tree.Path("d/*")), (Names{"new"}));
  tree.Remove("d");
  EXPECT_EQ(FirstError(tree.Path("d/*")), ERROR_PATH_NOT_FOUND);
}

TEST(PosixFind, KeepsASettledDirectoryAndSharesIt) {
  Tree tree;
  auto begun = std::chrono::steady_clock::now();
  tree.File("d/a");
  tree.Dir("d/b");
  posix_layer::Directory* first = posix_layer::AcquireDirectory(tree.Path("d").c_str());
  posix_layer::Directory* second = posix_layer::AcquireDirectory(tree.Path("d").c_str());
  ASSERT_NE(first, nullptr);
  if (std::chrono::steady_clock::now() - begun < std::chrono::milliseconds(90)) {
    EXPECT_NE(first, second) << "a change in the same tick would not show";
  }
  posix_layer::ReleaseDirectory(first);
  posix_layer::ReleaseDirectory(second);

  Settle();
  first = posix_layer::AcquireDirectory(tree.Path("d").c_str());
  second = posix_layer::AcquireDirectory(tree.Path("d").c_str());
  if (first != second) {
    posix_layer::ReleaseDirectory(first);
    posix_layer::ReleaseDirectory(second);
    GTEST_SKIP() << "the temporary folder's file system has no sure stamps";
  }
  posix_layer::ReleaseDirectory(second);
  tree.File("d/c");
  second = posix_layer::AcquireDirectory(tree.Path("d").c_str());
  EXPECT_NE(first, second);
  EXPECT_EQ(first->count, 2u) << "a search goes on over what it began with";
  EXPECT_EQ(second->count, 3u);
  posix_layer::ReleaseDirectory(first);
  posix_layer::ReleaseDirectory(second);
  posix_layer::ForgetDirectory();
}

TEST(PosixFind, GoesOnWhenTheGroundMoves) {
  Tree tree;
  for (const char* name : {"d/a", "d/b", "d/c"}) tree.File(name);
  WIN32_FIND_DATAA data;
  // An entry that vanishes is passed over by a search that looks at it.
  HANDLE search = FindFirstFileA(tree.Path("d/?").c_str(), &data);
  ASSERT_STREQ(data.cFileName, "a");
  tree.Remove("d/b");
  ASSERT_TRUE(FindNextFileA(search, &data));
  EXPECT_STREQ(data.cFileName, "c");
  FindClose(search);
  // The current directory changes under a relative search.
  ASSERT_EQ(chdir(tree.Path("d").c_str()), 0);
  search = FindFirstFileA("?", &data);
  ASSERT_NE(search, INVALID_HANDLE_VALUE);
  ASSERT_EQ(chdir("/"), 0);
  ASSERT_TRUE(FindNextFileA(search, &data));
  EXPECT_STREQ(data.cFileName, "c");
  FindClose(search);
  // The directory itself goes.
  search = FindFirstName(tree.Path("d/*").c_str(), &data, false);
  tree.Remove("d");
  while (FindNextFileA(search, &data)) {
  }
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
  EXPECT_TRUE(FindClose(search));
  // The current directory is one that was removed.
  tree.Dir("gone");
  ASSERT_EQ(chdir(tree.Path("gone").c_str()), 0);
  tree.Remove("gone");
  EXPECT_EQ(FirstError("*"), ERROR_PATH_NOT_FOUND);
  ASSERT_EQ(chdir("/"), 0);
}

TEST(PosixFind, HoldsNoDescriptorAndSaysWhenThereIsNone) {
  Tree tree;
  tree.File("a");
  tree.File("b");
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  int next = dup(0);
  ASSERT_GE(next, 0);
  close(next);
  rlimit tight = {static_cast<rlim_t>(next + 1), before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
  std::vector<HANDLE> searches;
  WIN32_FIND_DATAA data;
  for (int i = 0; i < 100; ++i) {
    searches.push_back(FindFirstFileA(tree.Path("?").c_str(), &data));
    EXPECT_NE(searches.back(), INVALID_HANDLE_VALUE);
  }
  for (HANDLE search : searches) {
    EXPECT_TRUE(FindNextFileA(search, &data));
    EXPECT_STREQ(data.cFileName, "b");
    EXPECT_TRUE(FindClose(search));
  }
  int last = dup(0);
  posix_layer::ForgetDirectory();
  EXPECT_EQ(FirstError(tree.Path("*")), ERROR_TOO_MANY_OPEN_FILES);
  close(last);
  setrlimit(RLIMIT_NOFILE, &before);
}

TEST(PosixFind, RefusesADirectoryThatCannotBeRead) {
  Tree tree;
  tree.File("shut/a");
  ASSERT_EQ(chmod(tree.root().c_str(), 0755), 0);
  Settle();
  List(tree.Path("shut/*"));  // kept for this user, and for no other
  ASSERT_EQ(chmod(tree.Path("shut").c_str(), 0700), 0);
  Settle();
  List(tree.Path("shut/*"));
  pid_t child = fork();
  if (child == 0) {
    // Root reads everything: a user of no rights asks instead.
    if (geteuid() == 0) {
      if (setresuid(65534, 65534, 65534) != 0) _exit(3);
    } else if (chmod(tree.Path("shut").c_str(), 0) != 0) {
      _exit(3);
    }
    _exit(FirstError(tree.Path("shut/*")) == ERROR_ACCESS_DENIED ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 3) GTEST_SKIP() << "rights cannot be given up";
  EXPECT_EQ(status, 0);
}

}  // namespace
