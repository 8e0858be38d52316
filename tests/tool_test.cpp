// The command-line program: what it prints, and its exit codes.

#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>

#include "platform/win32.h"
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

std::string SystemText(DWORD code) {
  char* text = nullptr;
  FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code, 0,
                 reinterpret_cast<char*>(&text), 0, nullptr);
  std::string message = text ? text : "";
  LocalFree(text);
  return message.substr(0, message.find("\r\n"));
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

TEST(Tool, ShowsTextsOfErrors) {
  Expect("error 29", 0,
         "message: Illegal file-open-mode specified\nsystem: " + SystemText(29) + "\n");
  Expect("error 0x52E", 0, "system: " + SystemText(0x52E) + "\n");
  Expect("error 999999", 1, "tavrix: no text for code 999999\n");
}

TEST(Tool, ConsoleCommandsOnAPipeWriteNoEscapes) {
  Result colors = Tavrix("colors");
  EXPECT_EQ(colors.code, 0);
  EXPECT_TRUE(colors.output.starts_with(" 00  10  2D ")) << colors.output;
  EXPECT_EQ(colors.output.find('\x1B'), colors.output.npos);
  EXPECT_EQ(colors.output.size(), 16 * (16 * 4 + 1u));
  Tree tree;
  for (const char* file : {"a", "b", "c/d"}) tree.File(file);
  Expect("progress \"" + tree.Path() + "\"", 0, std::string(79, '#') + "\n3 names\n");
  Expect("progress \"" + tree.Path("none") + Tree::Native("/*") + "\"", 0, "0 names\n");
  SetEnvironmentVariableA("TVX_TOOL", "value");
  Expect("expand TVX_TOOL", 0, "value\n");
  Expect("expand \"[%TVX_TOOL%]\"", 0, "[value]\n");
}

TEST(Tool, EditsFiles) {
  Tree tree;
  tree.File("f", "0123456789");
  std::string file = "\"" + tree.Path("f") + "\"";
  Expect("edit " + file + " --at 2 --delete 3 --insert ab", 0, "");
  EXPECT_EQ(tree.Read("f"), "01ab56789");
  Expect("append " + file + " \"<%s>\" text", 0, "");
  Expect("append " + file + " end", 0, "");
  EXPECT_EQ(tree.Read("f"), "01ab56789<text>end");
  Result result = Tavrix("edit " + file + " --at 100 --insert x");
  EXPECT_EQ(result.code, 1);
  EXPECT_TRUE(result.output.starts_with("tavrix: Error 01 (CFILE")) << result.output;
  EXPECT_EQ(Tavrix("append " + file + " %d 5").code, 2);
  tree.File("tool.log");
  Expect("companion \"" + tree.Path("tool.exe") + "\" .log", 0, tree.Path("tool.log") + "\n");
  EXPECT_EQ(Tavrix("companion .no-such").code, 1);
  tree.File("d/x.c");
  Expect("walk \"" + tree.Path() + "\" *.c", 0, "5\n  1 d\n6\n5\n  5\n    2 x.c\n  6\n6\n");
}

TEST(Tool, ScansFiles) {
  Tree tree;
  std::string text =
      "int a_1 =\t0x1Fu;\n"
      "s = \"//\\n\"; // it's\n"
      "/*\v*/ p->x >>= '\\n' \"open\n"
      "\x01@\xC3\xA4";
  tree.File("f", text);
  std::string file = "\"" + tree.Path("f") + "\"";
  std::string tokens =
      "1:1 name int\n1:4 blank  \n1:5 name a_1\n1:8 blank  \n1:9 operator =\n1:10 blank \\t\n"
      "1:11 number 0x1Fu\n1:16 operator ;\n1:17 line-end \\n\n"
      "2:1 name s\n2:2 blank  \n2:3 operator =\n2:4 blank  \n2:5 string \"//\\\\n\"\n"
      "2:11 operator ;\n2:12 blank  \n2:13 line-comment // it's\n2:20 line-end \\n\n"
      "3:1 comment /*\n3:3 blank \\v\n3:4 comment */\n3:6 blank  \n3:7 name p\n3:8 operator ->\n"
      "3:10 name x\n3:11 blank  \n3:12 operator >>=\n3:15 blank  \n3:16 character '\\\\n'\n"
      "3:20 blank  \n3:21 other \"\n3:22 name open\n3:26 line-end \\n\n"
      "4:1 other \\001\n4:2 other @\n4:3 name \xC3\xA4\n";
  for (const char* source : {"", " --stream", " --mapped"})
    Expect("scan " + file + source, 0, tokens);

  tree.File("f.ini", "; [a]\r\n[a b]\r\nx.y=\"1;\" [c]\n\n]");
  std::string ini = "scan --table ini \"" + tree.Path("f.ini") + "\"";
  Expect(ini, 0,
         "1:1 comment ; [a]\n1:6 line-end \\r\\n\n2:1 section [a b]\n2:6 line-end \\r\\n\n"
         "3:1 name x.y\n3:4 equals =\n3:5 string \"1;\"\n3:9 blank  \n3:10 other [\n3:11 name c\n"
         "3:12 other ]\n3:13 line-end \\n\n4:1 line-end \\n\n5:1 other ]\n");
  Expect(ini + " --count", 0,
         "line-end 4 6\nblank 1 1\nname 2 4\nstring 1 4\nother 3 3\nsection 1 5\ncomment 1 5\n"
         "equals 1 1\n");

  std::string none = "scan \"" + tree.Path("none") + "\"";
  for (const char* source : {"", " --stream", " --mapped"}) {
    Result result = Tavrix(none + source);
    EXPECT_EQ(result.code, 1) << source;
    EXPECT_TRUE(result.output.starts_with("tavrix: error ")) << source << result.output;
  }
}

TEST(Tool, TellsTheTime) {
  Result stamp = Tavrix("stamp");
  EXPECT_EQ(stamp.code, 0);
  EXPECT_TRUE(
      std::regex_match(stamp.output, std::regex(R"(\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d:\d{3}\n)")))
      << stamp.output;
  EXPECT_EQ(Tavrix("stamp 4").output.size(), 9u);
#ifdef _WIN32
  Result time = Tavrix("time \"cmd /c exit 3\"");
#else
  Result time = Tavrix("time 'sh -c \"exit 3\"'");
#endif
  EXPECT_EQ(time.code, 0);
  EXPECT_TRUE(std::regex_match(time.output, std::regex(R"(\d\d?\.\d{3}\n)"))) << time.output;
  Expect("time no-such-program-here", 1, "tavrix: cannot start 'no-such-program-here'\n");
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
  for (const char* wrong : {"",
                            "nonsense",
                            "list",
                            "list x --bogus",
                            "list x --recurse=deep",
                            "length",
                            "compare a b",
                            "compare a b x",
                            "span a b 0",
                            "span a b 9",
                            "list x --flags 0x100000000",
                            "list x --flags -1",
                            "error x",
                            "error 1 2",
                            "stamp 16",
                            "time",
                            "expand",
                            "progress",
                            "scan",
                            "scan x --table d",
                            "scan x --stream --mapped"}) {
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
