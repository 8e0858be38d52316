// The enumeration of names, a call for each of them, and the walk with a callback.
#include "tests/support/opened.h"
#include "tests/support/test.h"

namespace quern {
namespace {

using namespace tavrix_test;
using tavrix_test::Tree;

// In texts '@' is the tree, and '/' the separator of the system.
class List : public testing::Test {
 protected:
  ~List() override { std::filesystem::current_path(tree_.root().parent_path()); }

  std::string In(std::string text) const {
    for (size_t at = 0; (at = text.find_first_of("@/", at)) != text.npos; ++at)
      text.replace(at, 1, text[at] == '@' ? tree_.Path() : std::string(1, kPathSeparator));
    return text;
  }
  std::string Out(std::string text) const {
    for (size_t at; (at = text.find(tree_.Path())) != text.npos;)
      text.replace(at, tree_.Path().size(), "@");
    std::replace(text.begin(), text.end(), kPathSeparator, '/');
    return text;
  }
  // The next name, or "-" at the end.
  std::string Next(const char* roots, const char* patterns, uint32_t flags) const {
    char name[262];
    const std::string root = In(roots), pattern = In(patterns ? patterns : "");
    const char* text = *roots == '-' ? nullptr : root.c_str();
    return XFileList(name, text, patterns ? pattern.c_str() : nullptr, flags) ? Out(name) : "-";
  }

  struct Row {
    const char *roots, *patterns, *names;  // no roots: "-"
    uint32_t flags = 0;
  };
  void ExpectAll(const std::vector<Row>& rows) const {
    for (const auto& [roots, patterns, names, flags] : rows) {
      std::string all, name;
      while ((name = Next(roots, patterns, flags)) != "-") all += (all.empty() ? "" : " ") + name;
      EXPECT_EQ(all, names) << roots << " " << (patterns ? patterns : "") << std::hex << flags;
    }
  }

  Tree tree_;
};

TEST_F(List, TakesRootsAndPatternsApart) {
  for (const char* name : {"1/a.txt", "1/b.c", "2/a.txt", "my dir/c.txt"}) tree_.File(name);
  const char* const set[][2] = {{"ONE", "@/1"}, {"BOTH", "@/1;@/2"}, {"PATTERN", "*.c"}};
  for (const auto& [name, value] : set) SetEnvironmentVariableA(name, In(value).c_str());
  std::filesystem::current_path(tree_.root() / "1");
  const char* const all = "@/1/a.txt @/1/b.c @/2/a.txt";
  ExpectAll({
      {"@/1/;; ; @/2;\t", nullptr, all},  // blanks and empty entries are skipped; a tab is a root
      {"\"@/1\";\"@/2\"", nullptr, all},
      {"\"@/my dir/*.txt\"", nullptr, "\"@/my dir/c.txt\"", FL_QUOTE},
      {"-", "@/1/*.c", "@/1/b.c"},
      {"@/1", " *.c ;\t\"a*\"", "@/1/b.c @/1/a.txt"},
      // A quoted pattern loses its last byte, whatever that is.
      {"@/1", "\"b.cx", "@/1/b.c"},
      // A file as a root is a pattern with what follows it: only the last of a list is found.
      {"@/1/a.txt;@/1/b.c", nullptr, "@/1/b.c"},
      // A pattern with a folder finds there, and stays there for the next one.
      {"@", "1/*.c;a*", "@/1/b.c @/1/a.txt"},
      {"*.c", nullptr, "b.c", FL_AS_FOUND},
      {"", "a*", "a.txt", FL_AS_FOUND},
      {"%BOTH%", "*.txt", "@/1/a.txt @/2/a.txt"},
      // A pattern behind a reference serves every root; a second reference stays as it stands.
      {"-", "%ONE%\\*.txt", "@/1/a.txt"},
      {"-", "%BOTH%/*.txt", "@/1/a.txt @/2/a.txt", FL_AS_FOUND},
      {"-", "%ONE%\\%PATTERN%", ""},
  });
}

// The rules that surprise are here: the last pattern reports twice below a root, an explicit depth
// loses what is beside the first folder there, other flags count as a depth, and one stays.
TEST_F(List, EntersFolders) {
  for (const char* name : {"a/1.c", "a/2.txt", "a/b/3.c", "a/d/4.c", "e/f/g/5.txt", "h.TXT"})
    tree_.File(name);
  const char* const all = "@/h.TXT @/a/1.c @/a/2.txt @/a/b/3.c @/a/d/4.c @/e/f/g/5.txt";
  ExpectAll({
      {"@/*", nullptr, all, FL_RECURSE},
      {"@", "*.c;*.txt",
       "@/h.TXT @/a/2.txt @/a/1.c @/a/2.txt @/a/b/3.c @/a/d/4.c @/e/f/g/5.txt @/e/f/g/5.txt",
       FL_RECURSE},
      {"@/*", nullptr, "@/h.TXT @/a/1.c @/a/2.txt", FL_RECURSE | 2},
      {"@/*", nullptr, "@/h.TXT @/a/1.c @/a/2.txt @/a/b/3.c", FL_RECURSE | 3},
      {"@/*", nullptr, "@/h.TXT @/a/1.c @/a/2.txt @/a/b/3.c", FL_RECURSE},
      {"@/*", nullptr, all, FL_RECURSE | FL_AS_FOUND},
      {"@/a", nullptr, "@/a/. @/a/.. @/a/1.c @/a/2.txt @/a/b @/a/d", FL_DIRS | FL_AS_FOUND},
      {"@/a", nullptr, "@/a @ @/a/b @/a/d", FL_DIRS | FL_NO_FILES},
      {"@/e", "f*;g*", "@/e/f @/e/f/g @/e/f/g", FL_RECURSE | FL_DIRS},
  });
}

TEST_F(List, GoesOnWhereItWas) {
  for (const char* name : {"1/a", "1/b", "2/c", "r/a/1", "r/a/b/2", "r/a/c/3", "r/d/4", "rd/6"})
    tree_.File(name);
  const char *const roots = "@/1;@/2", *const deep = "@/r/*;@/2";
  const Row rows[] = {
      {roots, nullptr, "@/1/a", FL_FIRST},
      {roots, nullptr, "@/1/a"},
      {"-", nullptr, "-"},  // ends it
      {roots, nullptr, "@/1/a"},
      // A restart takes the next root, while the search goes on: the old one's b shows behind the
      // new folder, whose text ends before it. Behind the last root the list begins anew.
      {roots, nullptr, "@/2", FL_RESTART},
      {roots, nullptr, "@/1/a", FL_RESTART},
      {"x", nullptr, "@/1/b"},  // nothing is read behind the end of a shorter list
      {"x", nullptr, "-"},
      {deep, nullptr, "@/r/a/1", FL_RECURSE},
      {deep, nullptr, "@/r/a/b/2", FL_RECURSE},
      {deep, nullptr, "@/2/c"},  // the next root
      {deep, nullptr, "-"},
      {deep, nullptr, "@/r/a/1", FL_RECURSE},
      {deep, nullptr, "@/r/a/b/2", FL_RECURSE},
      {deep, nullptr, "@/rd/6", FL_RECURSE},
      {deep, nullptr, "@/2/c", FL_RECURSE},
      {deep, nullptr, "-", FL_RECURSE},
  };
  for (const auto& [root, patterns, name, flags] : rows) {
    // One that was passed already: out of the folder and its parent, with what else is there.
    if (strcmp(name, "@/rd/6") == 0) CurrentFinder->nMaxDepth = 2;
    EXPECT_EQ(Next(root, patterns, flags), name);
  }
  // Names that are collected, but for one that is too long.
  if (kPathSeparator == '/') tree_.File("1/" + std::string(250, 'a'));
  const std::string one = In("@/1");
  FileList(one.c_str(), nullptr, 0);
  CurrentFinder->pszSep = " | ";
  EXPECT_EQ(FileList(one.c_str(), nullptr, 0), In("@/1/a | @/1/b"));
  EXPECT_FALSE(FileList(one.c_str(), nullptr, 0) || CurrentFinder->pszSep);
}

TEST_F(List, KeepsToTheLimitsOfItsTextsAndLevels) {
  std::string dir, names, folder = "l/" + std::string(248 - In("@/l/").size(), 'd');
  for (int level = 1; level <= 40; ++level, dir += "d/") {
    tree_.File(dir + "f");
    if (level < 32) names += "@/" + dir + "f ";
  }
  // Nothing behind the deep folder is searched, but the next root is.
  for (const char* file : {"e/g", "d/e/g"}) tree_.File(file);
  ExpectAll({{"@/f*;@/e", nullptr, (names + "@/e/g").c_str(), FL_RECURSE}});
  EXPECT_EQ(CurrentFinder->nMaxDepth, 32);
  // Full names have 259 bytes; and a file as a root has a pattern's field, unless it is quoted.
  const std::string at = "@/" + folder + "/fffff", quote = "\"";
  for (const char* more : {"", "f", "ff", "fff", "ffff", "fffff"})
    tree_.File((at + more).substr(2));
  if (kPathSeparator == '/') tree_.File((at + "ffffff").substr(2));
  names = at + " " + at + "f " + at + "ff " + at + "fff " + at + "ffff " + at + "fffff";
  ExpectAll({{(at + "*").c_str(), nullptr, names.c_str()},
             {at.c_str(), nullptr, at.c_str()},
             {(at + "f").c_str(), nullptr, ""},
             {(quote + at + "f\"").c_str(), nullptr, (at + "f").c_str()},
             {(quote + at + "ff\"").c_str(), nullptr, ""}});
}

std::string seen;

uint32_t Note(uint32_t code, const WIN32_FIND_DATAA* entry) {
  seen += std::to_string(code) + (entry ? std::string(":") + entry->cFileName : "") + " ";
  return 7;
}

std::string Walked(const Tree& tree, const char* pattern) {
  char path[300];
  strcpy(path, tree.Path().c_str());
  seen.clear();
  EXPECT_EQ(FileWalk(path, pattern, Note), 0);
  EXPECT_EQ(path, tree.Path());
  return seen;
}

TEST(Walk, APassForEveryLevelAndCountersThatStay) {
  Tree tree;
  for (const char* file : {"a.txt", "d/b.txt", "e/f/c.txt"}) tree.File(file);
  // The first pass reports the top; the second one finds f in e, so that the third goes to its
  // files. The level stays for the siblings: with f found in e the files of e are behind.
  EXPECT_EQ(Walked(tree, "*.txt"),
            "5 2:a.txt 1:d 1:e 6 "
            "5 5 2:b.txt 6 5 1:f 6 5 5 2:c.txt 6 6 6 ");
  // A second walk begins at the level that the first one has left.
  EXPECT_EQ(Walked(tree, "*.txt"), "5 5 6 5 5 2:c.txt 6 6 6 ");
}

}  // namespace
}  // namespace quern
