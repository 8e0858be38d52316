// The enumeration of file names, against a model of what is reported and on trees that go wrong.

#include "quern/cfile/list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "exports/tavrix32.h"
#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cfile/path.h"
#include "quern/cobj.h"
#include "quern/csys.h"
#include "tests/support/alloc.h"
#include "tests/support/trail.h"
#include "tests/support/tree.h"

namespace {

namespace fs = std::filesystem;
using quern::ErrLast;
using tavrix_test::AllocationFault;
using tavrix_test::ClearedTrail;
using tavrix_test::Tree;
using Names = std::vector<std::string>;

constexpr char kSep = kPathSeparator;

// One enumeration through the export, to its end.
Names List(const char* roots, const char* patterns, uint32_t flags) {
  Names names;
  char name[262];
  while (XFileList(name, roots, patterns, flags) && names.size() < 200000) names.push_back(name);
  return names;
}

Names List(const std::string& roots, uint32_t flags) { return List(roots.c_str(), nullptr, flags); }

std::string Upper(std::string text) {
  for (char& c : text) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  return text;
}

bool Matches(const char* pattern, const char* name) {
  if (*pattern == '*') return Matches(pattern + 1, name) || (*name && Matches(pattern, name + 1));
  if (*pattern == '\0' || *name == '\0') return *pattern == *name;
  return (*pattern == '?' || Upper({*pattern}) == Upper({*name})) && Matches(pattern + 1, name + 1);
}

struct Entry {
  std::string name;
  bool isDirectory;
};

// A directory as the system's search gives it.
std::vector<Entry> Entries(const std::string& dir) {
  std::vector<Entry> entries;
  std::error_code none;
  for (const fs::directory_entry& entry : fs::directory_iterator(dir, none))
    entries.push_back({entry.path().filename().string(), entry.is_directory()});
  std::sort(entries.begin(), entries.end(),
            [](const Entry& a, const Entry& b) { return Upper(a.name) < Upper(b.name); });
  if (fs::is_directory(dir)) entries.insert(entries.begin(), {{".", true}, {"..", true}});
  return entries;
}

// The rules of the walk, over the text of the current directory.
struct Model {
  Names patterns;
  uint32_t flags;
  int maxDepth;
  std::string dir;
  Names names = {};

  void Search(const std::string& pattern) {
    if (dir.back() != kSep) dir += kSep;
    for (const Entry& entry : Entries(dir)) {
      if (!Matches(pattern == "*.*" ? "*" : pattern.c_str(), entry.name.c_str())) continue;
      if (entry.isDirectory ? !(flags & FL_DIRS) : (flags & FL_NO_FILES) != 0) continue;
      std::string name = dir + entry.name;
      if (!(flags & FL_AS_FOUND)) {
        fs::path here = fs::path(dir).parent_path();
        if (entry.name == ".") name = Tree::Native(here);
        if (entry.name == "..") name = Tree::Native(here.parent_path());
      }
      if ((flags & FL_QUOTE) && name.find_first_of(" \t") != name.npos) name = '"' + name + '"';
      names.push_back(name);
    }
  }
  void Visit(int level, bool separate) {
    // A subdirectory begins with the pattern that the directory before it ended with.
    if (separate && level > 1) Search(patterns.back());
    for (const std::string& pattern : patterns) Search(pattern);
    if (!(flags & FL_RECURSE) || level >= maxDepth) {
      dir.pop_back();  // one way up takes the separator, the other leaves it
      return;
    }
    for (const Entry& entry : Entries(dir)) {
      if (!entry.isDirectory || entry.name == "." || entry.name == "..") continue;
      dir += entry.name;
      Visit(level + 1, separate);
    }
    dir.pop_back();
    dir.resize(dir.rfind(kSep) + 1);
  }
};

void Grow(const Tree& tree, const std::string& dir, int level, std::mt19937& random) {
  const char* const names[] = {"a",     "b",  "ab",   "B c", "d.x", "E.txt",
                               "f.TXT", "gz", "abab", ".h",  "..x"};
  for (const char* name : names) {
    if (random() % 3 == 0) continue;
    std::string path = dir.empty() ? name : dir + "/" + name;
    if (level < 4 && random() % 3 == 0) {
      tree.Dir(path);
      Grow(tree, path, level + 1, random);
    } else {
      tree.File(path);
    }
  }
}

TEST(List, AgreesWithAModelOverRandomTreesAndFlags) {
  std::mt19937 random(52);
  int sticky = 32;
  for (int round = 0; round < 25; ++round) {
    Tree tree;
    Grow(tree, "", 1, random);
    for (int run = 0; run < 12; ++run) {
      bool separate = random() % 2;
      Model model;
      model.flags = 0;
      uint32_t depth = (const uint32_t[]){0, 0, 1, 2, 3, 32}[random() % 6];
      if (random() % 4) model.flags |= FL_RECURSE | depth;
      // Other flags count as a depth, too; an explicit one is only to be had without them.
      if (depth == 0)
        for (uint32_t flag : {FL_DIRS, FL_NO_FILES, FL_AS_FOUND, FL_QUOTE})
          if (random() % 2) model.flags |= flag;
      if ((model.flags & FL_RECURSE) && (model.flags & ~FL_RECURSE))
        sticky = static_cast<int>(model.flags & ~FL_RECURSE);
      model.maxDepth = sticky;
      std::string patterns;
      for (uint32_t n = separate ? 1 + random() % 3 : 1; n > 0; --n) {
        model.patterns.push_back(
            (const char*[]){"*", "*.txt", "a*", "?b*", "*.*", "ab*"}[random() % 6]);
        patterns += (patterns.empty() ? "" : "; ") + model.patterns.back();
      }
      std::string roots = tree.Path();
      model.dir = roots;
      model.Visit(1, separate);
      if (!separate) roots += kSep + patterns;
      Names names = List(roots.c_str(), separate ? patterns.c_str() : nullptr, model.flags);
      ASSERT_EQ(names, model.names) << roots << " | " << patterns << std::hex << " " << model.flags;
    }
  }
  EXPECT_EQ(quern::ErrCurrent, nullptr);
}

TEST(List, TheLastComponentOfAPath) {
  for (const char* path : {"a\\b", "a/b", "a:b", "a/", "\\/"})
    EXPECT_EQ(quern::LastComponent(path), 2u);
  EXPECT_EQ(quern::LastComponent("ab"), 0u);
  EXPECT_EQ(quern::LastComponent(""), 0u);
}

TEST(List, RootsAndPatternsAreTakenApart) {
  Tree tree;
  for (const char* file : {"one/a.txt", "one/b.c", "two/a.txt", "my dir/c.txt"}) tree.File(file);
  std::string one = tree.Path("one"), two = tree.Path("two"), spaced = tree.Path("my dir");
  Names all = {one + kSep + "a.txt", one + kSep + "b.c", two + kSep + "a.txt"};
  EXPECT_EQ(List(one + ";" + two, 0), all);
  EXPECT_EQ(List(one + kSep + ";; ; " + two + ";", 0),
            all);                               // blanks and empty entries are skipped
  EXPECT_EQ(List(one + ";\t;" + two, 0), all);  // a tab is a root, and yields nothing
  EXPECT_EQ(List('"' + one + "\";\"" + two + '"', 0), all);
  EXPECT_EQ(List('"' + spaced + kSep + "*.txt\"", FL_QUOTE),
            (Names{'"' + spaced + kSep + "c.txt\""}));
  EXPECT_EQ(List('"' + spaced + kSep + "c.txt\"", 0), (Names{spaced + kSep + "c.txt"}));
  EXPECT_EQ(List(tree.Path("none") + ";" + two + kSep + "?.TXT", 0), (Names{all[2]}));
  EXPECT_EQ(List(nullptr, (one + kSep + "*.c").c_str(), 0), (Names{all[1]}));
  EXPECT_EQ(List(one.c_str(), " *.c ;\t\"a*\"", 0), (Names{all[1], all[0]}));
  EXPECT_EQ(List(one.c_str(), "", 0), (Names{all[0], all[1]}));  // no pattern: all
  // A quoted pattern loses its last byte, whatever that is.
  const std::pair<const char*, Names> quoted[] = {{"\"*\"", {all[0], all[1]}},
                                                  {"\"b.c\"", {all[1]}},
                                                  {"\"b.cx", {all[1]}},
                                                  {"\"b", {}},
                                                  {"\"\"", {}},
                                                  {"\"", {}}};
  for (const auto& [pattern, names] : quoted)
    EXPECT_EQ(List(one.c_str(), pattern, 0), names) << pattern;
  // A file as a root is a pattern with what follows it: only the last of a list is found.
  EXPECT_EQ(List(all[0] + ";" + all[1], 0), (Names{all[1]}));
  // A pattern with a directory part finds there, and stays there for the next one.
  std::string inner = std::string("one") + kSep + "*.c;a*";
  EXPECT_EQ(List(tree.Path().c_str(), inner.c_str(), FL_AS_FOUND), (Names{all[1], all[0]}));
  fs::current_path(tree.root() / "one");
  EXPECT_EQ(List("*.c", 0), (Names{Tree::Native(fs::current_path() / "b.c")}));
  EXPECT_EQ(List("*.c", FL_AS_FOUND), (Names{"b.c"}));
  EXPECT_EQ(List("\"q\"", FL_AS_FOUND), Names{});
  EXPECT_EQ(List("", "a*", FL_AS_FOUND), (Names{"a.txt"}));
  fs::current_path(tree.root().parent_path());
}

TEST(List, EnvironmentReferences) {
  Tree tree;
  for (const char* file : {"one/a.tmp", "one/b.c", "two/c.tmp"}) tree.File(file);
  std::string one = tree.Path("one"), two = tree.Path("two");
  SetEnvironmentVariableA("TVX_ONE", one.c_str());
  SetEnvironmentVariableA("TVX_BOTH", (one + ";" + two).c_str());
  SetEnvironmentVariableA("TVX_PATTERN", "*.c");
  SetEnvironmentVariableA("TVX_UNSET", nullptr);
  Names both = {one + kSep + "a.tmp", two + kSep + "c.tmp"};
  EXPECT_EQ(List("%TVX_ONE%", 0), (Names{both[0], one + kSep + "b.c"}));
  EXPECT_EQ(List("%TVX_ONE%", "*.tmp", 0), (Names{both[0]}));
  EXPECT_EQ(List("%TVX_BOTH%", "*.tmp", 0), both);
  EXPECT_EQ(List(std::string("%TVX_ONE%") + kSep + "%TVX_PATTERN%", 0),
            (Names{one + kSep + "b.c"}));
  EXPECT_EQ(List(nullptr, "%TVX_ONE%\\*.tmp", 0), (Names{both[0]}));
  EXPECT_EQ(List(nullptr, "%TVX_BOTH%\\*.tmp", 0), both);  // the pattern serves every root
  EXPECT_EQ(List(nullptr, (std::string("%TVX_ONE%") + kSep + "*.tmp").c_str(), 0),
            (Names{both[0]}));
  EXPECT_EQ(List(nullptr, "%TVX_ONE%*.tmp", 0), (Names{both[0]}));
  // A second reference stays as it stands in the pattern, which finds nothing.
  EXPECT_EQ(List(nullptr, "%TVX_ONE%\\%TVX_PATTERN%", 0), Names{});
  EXPECT_EQ(List(nullptr, "%TVX_PATTERN%%TVX_LONG_AND_UNSET%", 0), Names{});
  // A pattern of the caller's own is taken behind its reference; not where it has become shorter.
  quern::FileListWork work;
  std::string pattern = "%TVX_BOTH%\\*.tmp";
  EXPECT_EQ(quern::FileListRoot(&work, nullptr, pattern.c_str()), &work);
  EXPECT_EQ(work.dir + std::string(work.pattern), one + "*.tmp");
  EXPECT_EQ(quern::FileListRoot(&work, nullptr, pattern.c_str()), &work);
  EXPECT_EQ(work.dir + std::string(work.pattern), two + "\\*.tmp");
  EXPECT_EQ(quern::FileListRoot(&work, nullptr, pattern.c_str()), nullptr);
  EXPECT_EQ(quern::FileListRoot(&work, nullptr, pattern.c_str()), &work);
  EXPECT_EQ(quern::FileListRoot(&work, nullptr, "*.c"), &work);
  EXPECT_EQ(work.dir + std::string(work.pattern), two + "\\*.c");
  quern::FileListRoot(nullptr, nullptr, nullptr);
#ifndef _WIN32  // where a variable may be empty
  SetEnvironmentVariableA("TVX_EMPTY", "");
  fs::current_path(two);
  EXPECT_EQ(List(nullptr, "%TVX_EMPTY%*.tmp", FL_AS_FOUND), (Names{"c.tmp"}));
  fs::current_path(tree.root().parent_path());
#endif
  EXPECT_EQ(List("%TVX_UNSET%", 0), Names{});
  EXPECT_EQ(List("%TVX_UNSET%;%TVX_ONE%", "*.c", 0), (Names{one + kSep + "b.c"}));
  EXPECT_STREQ(quern::FileListPattern(&work, "\"\""), "");  // quotes around nothing
}

TEST(List, CallsInTheMiddleOfAnEnumeration) {
  Tree tree;
  for (const char* file : {"one/a", "one/b", "two/c"}) tree.File(file);
  std::string roots = tree.Path("one") + ";" + tree.Path("two");
  std::string a = tree.Path("one/a"), b = tree.Path("one/b"), c = tree.Path("two/c");
  char name[262] = "kept";
  auto next = [&](uint32_t flags) {
    return XFileList(name, roots.c_str(), nullptr, flags) ? std::string(name) : std::string("-");
  };
  EXPECT_EQ(next(FL_FIRST), a);
  EXPECT_EQ(next(FL_FIRST), a);
  EXPECT_EQ(next(0), a);
  EXPECT_EQ(XFileList(nullptr, roots.c_str(), nullptr, 0), 0);  // passes b over
  EXPECT_EQ(next(0), c);
  EXPECT_EQ(next(0), "-");
  EXPECT_EQ(next(0), a);
  EXPECT_EQ(XFileList(name, nullptr, nullptr, 0), 0);  // ends it
  EXPECT_EQ(next(0), a);
  // A restart takes the next root of the list, while the search goes on where it was.
  // (the old search's b shows behind the new root, whose text ends before it) ...
  EXPECT_EQ(next(FL_RESTART), tree.Path("two"));
  // ... and behind the last root the list begins anew.
  EXPECT_EQ(next(FL_RESTART | FL_FIRST), a);
  EXPECT_EQ(next(FL_RESTART), a);
  EXPECT_EQ(XFileList(name, "x", nullptr, 0), 1);  // a shorter list: nothing is read behind its end
  EXPECT_EQ(XFileList(name, "x", nullptr, 0), 0);
  EXPECT_EQ(quern::ErrCurrent, nullptr);
  // Behind an empty root only the directory's text is left of the old search's names: nothing.
  EXPECT_EQ(XFileList(name, (tree.Path("one") + ";*.q").c_str(), nullptr, FL_AS_FOUND), 1);
  EXPECT_EQ(XFileList(name, (tree.Path("one") + ";*.q").c_str(), nullptr, FL_AS_FOUND | FL_RESTART),
            1);
  EXPECT_STREQ(name, "");
  XFileList(name, nullptr, nullptr, 0);
  // The class procedure may come at any time, also with another finder's list under way.
  EXPECT_EQ(XFileList(name, tree.Path("one").c_str(), "a;b", 0), 1);
  quern::FileFinder* first = quern::CurrentFinder;
  quern::FileFinder other = {};
  quern::FileFinderSelect(&other);
  quern::FileFinderClass(0);
  quern::FileFinderSelect(first);  // empties the directory text
  EXPECT_EQ(XFileList(name, tree.Path("one").c_str(), "a;b", 0), 0);
  XFileList(name, nullptr, nullptr, 0);
  EXPECT_EQ(next(0), a);
  quern::ClsGarbage(quern::kFinderTag);
  EXPECT_EQ(quern::CurrentFinder, nullptr);
  List(roots, 0);
  EXPECT_EQ(List(roots, 0), (Names{a, b, c}));
}

// Names that are collected in one text, with a name that does not fit passed over.
TEST(List, CollectsNamesBehindEachOther) {
  Tree tree;
  for (const char* file : {"l/a", "l/b", "l/d"}) tree.File(file);
#ifndef _WIN32
  tree.File("l/" + std::string(250, 'c'));
#endif
  std::string roots = tree.Path("l"), all = tree.Path("l/a");
  EXPECT_EQ(quern::FileList(roots.c_str(), nullptr, 0), all);
  for (const char* name : {"l/b", "l/d"}) {
    quern::CurrentFinder->pszSep = " | ";
    all += " | " + tree.Path(name);
    EXPECT_EQ(quern::FileList(roots.c_str(), nullptr, 0), all);
  }
  EXPECT_EQ(quern::FileList(roots.c_str(), nullptr, 0), nullptr);
  EXPECT_EQ(quern::CurrentFinder->pszSep, nullptr);
  // No memory ends it.
  quern::FileList(roots.c_str(), nullptr, 0);
  std::string wide(1000, '-');
  quern::CurrentFinder->pszSep = wide.c_str();
  quern::ErrRaise("test", 1, 1);  // the stack is there
  quern::ErrClear();
  {
    AllocationFault fault(1, 9);
    EXPECT_EQ(quern::FileList(roots.c_str(), nullptr, 0), nullptr);
  }
  EXPECT_EQ(ClearedTrail(), "02.02");  // of the buffer
  // The name that was returned last may be the next list.
  const char* name = quern::FileList(tree.Path().c_str(), "l", FL_DIRS | FL_FIRST);
  ASSERT_EQ(name, roots);
  EXPECT_EQ(quern::FileList(name, "*", 0), tree.Path("l/a"));
  EXPECT_EQ(quern::FileList(name, "*", 0), tree.Path("l/b"));
}

// What changes while an enumeration runs: its flags, its depth, and a pattern that cannot be one.
TEST(List, RulesThatChangeUnderWay) {
  Tree tree;
  for (const char* file : {"r/a/1", "r/a/b/2", "r/a/c/3", "r/d/4", "s/5", "rd/6"}) tree.File(file);
  std::string roots = tree.Path("r") + kSep + "*;" + tree.Path("s");
  auto start = [&](const char* until) {
    Names names;
    XFileList(nullptr, nullptr, nullptr, 0);
    char name[262];
    while (names.empty() || names.back() != tree.Path(until)) {
      if (!XFileList(name, roots.c_str(), nullptr, FL_RECURSE | FL_AS_FOUND)) break;
      names.push_back(name);
    }
  };
  auto rest = [&](uint32_t flags) {
    std::string names;
    char name[262];
    while (XFileList(name, roots.c_str(), nullptr, flags | FL_AS_FOUND))
      names += fs::path(name).filename().string();
    return names;
  };
  start("r/a/b/2");
  EXPECT_EQ(rest(FL_RECURSE), "345");
  start("r/a/b/2");
  EXPECT_EQ(rest(0), "5");  // the next root
  // A depth that was passed already: out of the folder and its parent, with what else is there. The
  // next name of the walk comes without a separator, and does name a folder here.
  start("r/a/b/2");
  quern::CurrentFinder->nMaxDepth = 2;
  EXPECT_EQ(rest(FL_RECURSE), "65");
  std::string patterns = "*;" + std::string(256, 'p');
  char name[262];
  EXPECT_EQ(XFileList(name, tree.Path("s").c_str(), patterns.c_str(), 0), 1);
  EXPECT_EQ(XFileList(name, tree.Path("s").c_str(), patterns.c_str(), 0), 0);
  EXPECT_EQ(ClearedTrail(), "02");
  EXPECT_EQ(List(tree.Path("s"), 0), (Names{tree.Path("s/5")}));
}

TEST(List, TheWalkEndsAtDepth32) {
  Tree tree;
  std::string dir;
  Names names;
  for (int level = 1; level <= 40; ++level) {
    tree.File(dir + "f");
    if (level < 32) names.push_back(tree.Path(dir + "f"));
    dir += "d/";
  }
  tree.File("e/g");
  tree.File("d/e/g");
  EXPECT_EQ(List(tree.Path() + kSep + "f*", FL_RECURSE), names);
  EXPECT_EQ(quern::CurrentFinder->nMaxDepth, 32);
  List(tree.Path("e"), FL_AS_FOUND);
  EXPECT_EQ(quern::CurrentFinder->nMaxDepth, 32) << "another flag is no depth";
  // Nothing behind the deep directory is searched, but the next root is.
  names.push_back(tree.Path("e/g"));
  EXPECT_EQ(List(tree.Path() + kSep + "f*;" + tree.Path("e"), FL_RECURSE | FL_AS_FOUND), names);
  // One level less is left by both ways up at once.
  names.resize(31);
  EXPECT_EQ(List(tree.Path() + kSep + "f*", FL_RECURSE | 31), names);
  EXPECT_EQ(List(tree.Path() + kSep + "f*", FL_AS_FOUND).size(),
            1u);  // no depth without FL_RECURSE
  EXPECT_EQ(quern::CurrentFinder->nMaxDepth, 31);
}

TEST(List, NamesAtTheLimits) {
  Tree tree;
  // Full paths of 255 to 263 bytes: 259 is the longest that a call takes.
  std::string base = tree.Path("l");
  std::string deep = "l/" + std::string(259 - base.size() - 12, 'd');
  Names names;
  std::string path = tree.Path(deep) + kSep;
  for (size_t length = 1; length <= 12; ++length) {
    std::string name(length, 'f');
    if (path.size() + length < 260) names.push_back(path + name);
#ifndef _WIN32  // where such files can be made
    tree.File(deep + "/" + name);
#else
    if (path.size() + length < 260) tree.File(deep + "/" + name);
#endif
  }
  ASSERT_GE(names.size(), 8u);
  EXPECT_EQ(List(tree.Path() + kSep + "*", FL_RECURSE | FL_AS_FOUND), names);
  EXPECT_EQ(List(tree.Path() + kSep + "*", FL_RECURSE), names);
#ifndef _WIN32
  std::string longest(255, 'n');
  tree.File("n/" + longest);
  fs::current_path(tree.root() / "n");
  EXPECT_EQ(List("*", FL_AS_FOUND), (Names{longest}));
  EXPECT_EQ(List("*", FL_AS_FOUND | FL_QUOTE), (Names{longest}));
  fs::current_path(tree.root().parent_path());
  tree.File("n/z/" + longest + "/below");
  tree.File("n/zz/after");
  EXPECT_EQ(List(tree.Path("n") + kSep + "*", FL_RECURSE), (Names{tree.Path("n/zz/after")}));
  // Directories whose text is as long as its room, or a byte or two shorter, and patterns there.
  for (size_t length : {257, 258, 259, 260}) {
    Tree other;
    std::string full = other.Path("d/");
    full += std::string(length - full.size(), 'e');
    other.File("d/" + full.substr(other.Path("d/").size()) + "/f");
    other.File("d/z/g");
    Names found = {other.Path("d/z/g")};
    if (length == 257) found.insert(found.begin(), full + "/f");
    EXPECT_EQ(List(other.Path("d") + kSep + "?", FL_RECURSE), found) << length;
    EXPECT_EQ(List(full.c_str(), "*", FL_DIRS | FL_AS_FOUND).size(), length == 257 ? 2u : 0u);
    EXPECT_EQ(ClearedTrail(), length < 260 ? "" : "02");
  }
  // A file as a root has room for a pattern, quoted or not.
  for (const std::string& file : names) {
    size_t size = file.size();
    EXPECT_EQ(List(file, 0), size < 255 ? Names{file} : Names{}) << size;
    EXPECT_EQ(ClearedTrail(), size < 255 ? "" : "02") << size;
    EXPECT_EQ(List('"' + file + '"', 0), size < 256 ? Names{file} : Names{}) << size;
    EXPECT_EQ(ClearedTrail(), size < 256 ? "" : "02") << size;
  }
#endif
  // What is no file splits into a directory and a pattern; so much for the pattern.
  quern::FileListWork work;
  for (size_t length : {255, 256, 259, 260}) {
    std::string none(length, 'q');
    quern::FileListWork* fits = length < 256 ? &work : nullptr;
    EXPECT_EQ(quern::FileListRoot(&work, none.c_str(), nullptr), fits) << length;
    quern::FileListRoot(nullptr, nullptr, nullptr);
    EXPECT_EQ(quern::FileListRoot(&work, "x", none.c_str()), fits) << length;
    quern::FileListRoot(nullptr, nullptr, nullptr);
    EXPECT_EQ(ClearedTrail(), fits ? "" : "02.02");
  }
  EXPECT_EQ(work.pattern, std::string(255, 'q'));
  EXPECT_EQ(quern::FileListPattern(&work, nullptr), nullptr);
  std::string text(300, 'r');
  for (const char* argument : {text.c_str(), (text.resize(260), text.c_str())}) {
    EXPECT_EQ(List(argument, 0), Names{});
    EXPECT_EQ(List("x", argument, 0), Names{});
    EXPECT_EQ(List(nullptr, argument, 0), Names{});
  }
  EXPECT_EQ(ClearedTrail(), "02.02.02.02.02.02");
}

TEST(List, TenThousandEntriesAndChangesUnderWay) {
  Tree tree;
  for (int i = 0; i < 10000; ++i) tree.File("many/" + std::to_string(100000 + i));
  Names names = List(tree.Path("many"), 0);
  ASSERT_EQ(names.size(), 10000u);
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  EXPECT_EQ(names.back(), tree.Path("many/109999"));
  tree.Remove("many");
  for (const char* file : {"a/1", "a/x/2", "b/3", "c/y/4", "c/y/5", "d/6"}) tree.File(file);
  std::string roots = tree.Path() + kSep + "*";
  Names seen;
  char name[262];
  while (XFileList(name, roots.c_str(), nullptr, FL_RECURSE)) {
    seen.push_back(fs::path(name).filename().string());
    if (seen.back() == "1") tree.Remove("a/x");
#ifndef _WIN32  // where a directory that is being searched cannot go
    if (seen.back() == "4") tree.Remove("c");
#endif
  }
  seen.erase(std::remove(seen.begin(), seen.end(), "5"), seen.end());  // may be read already
  EXPECT_EQ(seen, (Names{"1", "3", "4", "6"}));
}

TEST(List, FinderFailures) {
  quern::FileListWork work;
  uint32_t foreign[sizeof(quern::FileFinder) / 4] = {1};
  EXPECT_EQ(quern::FileFinderSelect(foreign), nullptr);
  EXPECT_EQ(ClearedTrail(), "1000.04");
  for (int64_t number : {1, 2, 3}) {
    AllocationFault fault(number);
    EXPECT_EQ(XFileList(nullptr, "x", nullptr, 0), 0);
    const char* trails[] = {"1000.1000.02", "1000.02", "1000.03.01"};
    EXPECT_EQ(ClearedTrail(), trails[number - 1]);
    EXPECT_EQ(quern::CurrentFinder, nullptr);
  }
  quern::FileFinder own = {};
  quern::FileFinderSelect(&own);
  EXPECT_EQ(quern::CurrentFinder, &own);
  EXPECT_EQ(own.bufResult.nSize, 270u);
  EXPECT_EQ(own.bufResult.nAlloc, 520u);
  own.pDrives = quern::MemSplitInit(nullptr, "", 0, "", 0);
  std::string here = fs::current_path().string();
  uint32_t bit = quern::FileListDrives(here.c_str(), 0xFFFFFFFF);
  EXPECT_EQ(bit & (bit - 1), 0u);
  EXPECT_EQ(quern::FileListDrives(nullptr, 0xFFFFFFFF), 0u);
  EXPECT_EQ(quern::FileListDrives(here.c_str(), ~bit), 0u);
  EXPECT_EQ(quern::FileFinderClass(0), 0u);
  EXPECT_EQ(own.header.tag, 0u);
  EXPECT_EQ(quern::FileFinderClass(0), 0u);
  EXPECT_EQ(quern::FileListPattern(&work, "x"), nullptr);  // no finder
  EXPECT_EQ(quern::FileListPattern(nullptr, nullptr), nullptr);
  EXPECT_EQ(quern::FileListDrives("x", 0xFFFFFFFF), 0u);
  // A result that is there already will do.
  quern::FileFinderSelect(&own);
  EXPECT_EQ(quern::FileListDrives("x", 0xFFFFFFFF), 0u);
  quern::MemBufFree(&own.bufResult);
  own.bufResult.nAlign = 1;
  quern::MemBufSet(&own.bufResult, "kept", 4);
  {
    AllocationFault fault(1, 9);
    quern::FileFinderSelect(&own);
  }
  EXPECT_EQ(ClearedTrail(), "02");  // of the buffer
  EXPECT_EQ(quern::CurrentFinder, &own);
  EXPECT_EQ(quern::FileFinderClass(quern::kCollectRequest), 0u);
  EXPECT_EQ(quern::CurrentFinder, nullptr);
}

}  // namespace
