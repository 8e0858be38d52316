// The command-line program: what it prints, and its exit codes.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/support/tree.h"

#ifdef _WIN32
#define popen _popen
#define pclose _pclose
#define WEXITSTATUS(status) (status)
#else
#include <sys/wait.h>
#endif

namespace {

using tavrix_test::Tree;

struct Result {
  int code;
  std::string output;  // both streams
};

Result Tavrix(const std::string& arguments) {
  std::string program = Tree::Native(TAVRIX_PROGRAM);
  FILE* pipe = popen((program + " " + arguments + " 2>&1").c_str(), "r");
  Result result = {-1, ""};
  if (!pipe) return result;
  for (int c; (c = fgetc(pipe)) != EOF;)
    if (c != '\r') result.output += static_cast<char>(c);
  result.code = WEXITSTATUS(pclose(pipe));
  return result;
}

void Expect(const std::string& arguments, int code, const std::string& output) {
  Result result = Tavrix(arguments);
  EXPECT_EQ(result.code, code) << arguments;
  EXPECT_EQ(result.output, output) << arguments;
}

TEST(Tool, ListsWithEveryFlag) {
  Tree tree;
  for (const char* file : {"a.txt", "b.c", "in/c.txt", "in/deep/d.txt"}) tree.File(file);
  std::string root = tree.Path(), list = "list \"" + root;
  auto path = [&](const char* name) { return tree.Path(name) + "\n"; };
  Expect(list + "\"", 0, path("a.txt") + path("b.c"));
  Expect(list + "\" *.c", 0, path("b.c"));
  Expect(list + Tree::Native("/*.txt") + "\" --recurse", 0,
         path("a.txt") + path("in/c.txt") + path("in/deep/d.txt"));
  Expect("list --recurse=2 \"" + root + Tree::Native("/*.txt") + "\"", 0,
         path("a.txt") + path("in/c.txt"));
  Expect("list --recurse \"" + root + Tree::Native("/d*") + "\"", 0, path("in/deep/d.txt"));
  Expect(list + Tree::Native("/*.txt") + "\" --flags 0x80000002", 0,
         path("a.txt") + path("in/c.txt"));
  Expect(list + "\" i* --dirs --no-files", 0, path("in"));
  Expect(list + "\" --first --restart", 0, path("a.txt"));
  tree.File("x/a b");
  Expect("list \"" + tree.Path("x") + "\" --quote --as-found", 0,
         '"' + tree.Path("x/a b") + "\"\n");
  Expect("list \"" + tree.Path("none") + Tree::Native("/*") + "\"", 0, "");
  Expect("list \"" + std::string(300, 'r') + "\"", 1, "tavrix: error 02\n");
}

TEST(Tool, StringCommands) {
  Expect("length abcdef", 0, "6\n");
  Expect("compare abc abd 2", 0, "1\n");
  Expect("compare abc abd 3", 0, "0\n");
  Expect("compare b a 1", 0, "2\n");
  Expect("span aaab a", 0, "4\n");
  Expect("span aaab a 2", 0, "3\n");
  Expect("cspan abcdef e 3", 0, "3\n");
}

TEST(Tool, RunsPrograms) {
#ifdef _WIN32
  Expect("run \"cmd /c exit 3\"", 0, "");
#else
  Expect("run 'sh -c \"exit 3\"'", 0, "");
#endif
  Expect("run no-such-program-here", 1, "tavrix: cannot start 'no-such-program-here'\n");
}

TEST(Tool, WrongOptionsGetOneLine) {
  for (const char* wrong : {"", "nonsense", "list", "list x --bogus", "list x --recurse=deep",
                            "length", "compare a b", "compare a b x", "span a b 0", "span a b 9",
                            "list x --flags 0x100000000", "list x --flags -1"}) {
    Result result = Tavrix(wrong);
    EXPECT_EQ(result.code, 2) << wrong;
    EXPECT_EQ(result.output.find('\n'), result.output.size() - 1) << wrong << ": " << result.output;
    EXPECT_EQ(result.output.find("tavrix: "), 0u) << wrong;
  }
  EXPECT_EQ(Tavrix("--help").code, 0);
  EXPECT_NE(Tavrix("list --help").output.find("--recurse"), std::string::npos);
  EXPECT_EQ(Tavrix("--version").output, "tavrix " TAVRIX_VERSION "\n");
}

}  // namespace
