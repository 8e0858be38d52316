// The file-open dialog, with programs that stand in for the desktop's.
#include "tests/support/test.h"

namespace {

class PosixDialog : public testing::Test {
 protected:
  PosixDialog() {
    setenv("PATH", (tree_.Path("bin") + ":/usr/bin:/bin").c_str(), 1);
    setenv("DISPLAY", ":77", 1);
    unsetenv("WAYLAND_DISPLAY");
    tree_.File("data/a.txt");
    ofn_.lStructSize = 76;
    ofn_.lpstrFile = file_;
    ofn_.nMaxFile = sizeof file_;
    ofn_.lpstrFileTitle = title_;
    ofn_.nMaxFileTitle = sizeof title_;
    ofn_.lpstrInitialDir = folder_.c_str();
  }

  // A program of the desktop that runs this shell text.
  void Desktop(const std::string& name, const std::string& text) {
    tree_.File("bin/" + name, "#!/bin/sh\ncd " + folder_ + "\n" + text + "\n");
    std::filesystem::permissions(tree_.root() / "bin" / name, std::filesystem::perms::all);
  }

  // One that notes its arguments and prints a name.
  void Answer(const std::string& name, const std::string& path) {
    Desktop(name, "printf '%s\\n' \"$@\" >arguments\necho '" + path + "'");
  }

  // Calls the dialog in a child on a terminal of its own, where this is typed. Whether it came to
  // `expected`, or to a cancel for "".
  bool TypedGives(const char* typed, const std::string& expected) {
    int master;
    pid_t child = forkpty(&master, nullptr, nullptr, nullptr);
    if (child == 0) exit((GetOpenFileNameA(&ofn_) ? file_ : "") == expected ? 0 : 1);
    for (char byte = 0; byte != ':' && read(master, &byte, 1) == 1;) shown_ += byte;
    int status = 1;
    if (*typed && write(master, typed, strlen(typed)) < 0) return false;
    waitpid(child, &status, 0);
    close(master);
    return status == 0;
  }

  tavrix_test::Tree tree_;
  std::string folder_ = tree_.Path("data"), shown_;
  OPENFILENAMEA ofn_ = {};
  char file_[260] = "";
  char title_[64] = "";
};

TEST_F(PosixDialog, AsksZenityAndFillsTheRecord) {
  Answer("zenity", folder_ + "/a.txt");
  ofn_.lpstrFilter = "All\0*.*\0Text; $(touch x)\0*.txt;*.doc\0";
  ofn_.nFilterIndex = 2;
  ofn_.lpstrTitle = "--help `id`";
  ASSERT_TRUE(GetOpenFileNameA(&ofn_));
  EXPECT_EQ(file_, folder_ + "/a.txt");
  EXPECT_STREQ(title_, "a.txt");
  EXPECT_STREQ(file_ + ofn_.nFileOffset, "a.txt");
  EXPECT_STREQ(file_ + ofn_.nFileExtension, "txt");
  file_[0] = 0;
  EXPECT_EQ(tree_.Read("data/arguments"),
            "--file-selection\n--title=--help `id`\n--filename=" + folder_ +
                "/\n--file-filter=Text; $(touch x) | *.txt *.doc\n"
                "--file-filter=All | *\n");
  ofn_.lStructSize = 77;
  EXPECT_FALSE(GetOpenFileNameA(&ofn_));
  EXPECT_EQ(CommDlgExtendedError(), CDERR_STRUCTSIZE);
  ofn_.lStructSize = 88;
  EXPECT_TRUE(GetOpenFileNameA(&ofn_));
}

TEST_F(PosixDialog, GoesOnToKdialogAndTakesACancel) {
  Desktop("zenity", "exit 5");
  Answer("kdialog", "/a/long/name");
  ofn_.lpstrFilter = "Text\0*.txt\0All\0*.*\0";
  ofn_.lpstrInitialDir = nullptr;
  ofn_.nMaxFile = 12;
  EXPECT_FALSE(GetOpenFileNameA(&ofn_));
  EXPECT_EQ(CommDlgExtendedError(), FNERR_BUFFERTOOSMALL);
  EXPECT_EQ(file_[0], 13) << "the size that would do";
  EXPECT_EQ(tree_.Read("data/arguments"),
            "--title\nOpen\n--getopenfilename\n./\n*.txt|Text\n*|All\n");
  ofn_.nMaxFile = 13;
  EXPECT_TRUE(GetOpenFileNameA(&ofn_));
  EXPECT_EQ(ofn_.nFileExtension, 0);
  Desktop("zenity", "exit 1");
  EXPECT_FALSE(GetOpenFileNameA(&ofn_));
  EXPECT_EQ(CommDlgExtendedError(), 0u);
}

TEST_F(PosixDialog, AsksAgainForANameThatTheFlagsRefuse) {
  // The first answer is missing, the second is a folder, the third will do.
  Desktop("zenity",
          "echo x >>count; case $(wc -l <count) in 1) echo $PWD/missing;; 2) echo $PWD;; "
          "*) echo $PWD/a.txt;; esac");
  ofn_.Flags = OFN_FILEMUSTEXIST | OFN_PATHMUSTEXIST;
  EXPECT_TRUE(GetOpenFileNameA(&ofn_));
  EXPECT_EQ(tree_.Read("data/count"), "x\nx\nx\n");
  // A program that never gives a name that will do is given up.
  Answer("zenity", folder_ + "/missing");
  EXPECT_FALSE(GetOpenFileNameA(&ofn_));
  ofn_.Flags = OFN_PATHMUSTEXIST;
  ofn_.lpstrDefExt = "doc";
  SetLastError(55);
  EXPECT_TRUE(GetOpenFileNameA(&ofn_));
  EXPECT_EQ(GetLastError(), 55u);
  EXPECT_STREQ(title_, "missing.doc");
}

TEST_F(PosixDialog, AsksOnTheTerminalWithoutADisplay) {
  unsetenv("DISPLAY");
  ofn_.lpstrTitle = "Which file";
  EXPECT_TRUE(TypedGives("a.txt\n", folder_ + "/a.txt"));
  EXPECT_EQ(shown_, "Which file:");
  EXPECT_TRUE(TypedGives("\n", ""));
  strcpy(file_, "preset");
  EXPECT_TRUE(TypedGives("\n", folder_ + "/preset"));
  file_[0] = 0;
  int code = tavrix_test::InChild([&] {
    setsid();  // no terminal any more
    return GetOpenFileNameA(&ofn_) || CommDlgExtendedError() ? 1 : 0;
  });
  EXPECT_EQ(code, 0) << "nobody to ask is a cancel";
  int master, status = 1;
  pid_t shell = forkpty(&master, nullptr, nullptr, nullptr);
  auto inBackground = [&] {
    setpgid(0, 0);
    return GetOpenFileNameA(&ofn_) || CommDlgExtendedError() ? 1 : 0;
  };
  if (shell == 0) exit(tavrix_test::InChild(inBackground));
  waitpid(shell, &status, 0);
  EXPECT_EQ(status, 0) << "neither stopped nor answered";
  close(master);
}

TEST_F(PosixDialog, CompletesNamesWithTheDefaultExtension) {
  tree_.File("data/plain");
  ofn_.lpstrDefExt = "doc";
  ofn_.Flags = OFN_PATHMUSTEXIST;
  std::string longest(257 - folder_.size(), 'n');
  const std::pair<std::string, std::string> kRows[] = {
      {"plain", "plain"}, {"new", "new.doc"}, {"new.c", "new.c"},
      {"none/new", ""},   {longest, ""},      {longest + longest + "nnnnn", ""}};
  for (const auto& [chosen, expected] : kRows) {
    Answer("zenity", folder_ + "/" + chosen);
    file_[0] = 0;
    EXPECT_EQ(GetOpenFileNameA(&ofn_), !expected.empty()) << chosen;
    EXPECT_EQ(std::string(file_), expected.empty() ? "" : folder_ + "/" + expected);
  }
  Answer("zenity", std::string(258, 'r'));  // relative, and too long when it is not
  EXPECT_FALSE(GetOpenFileNameA(&ofn_));
  for (const char* extension : {"", static_cast<const char*>(nullptr)}) {
    ofn_.lpstrDefExt = extension;
    ofn_.Flags = 0;
    Answer("zenity", folder_ + "/none/new");
    EXPECT_TRUE(GetOpenFileNameA(&ofn_));
    EXPECT_STREQ(title_, "new");
  }
  // Without a line end, and without a name.
  Desktop("zenity", "printf $PWD/a.txt");
  EXPECT_TRUE(GetOpenFileNameA(&ofn_));
  EXPECT_STREQ(title_, "a.txt");
  Desktop("zenity", "exit 0");
  EXPECT_FALSE(GetOpenFileNameA(&ofn_));
}

TEST_F(PosixDialog, IsWhatTheExportAndTheProgramAsk) {
  Answer("zenity", folder_ + "/a.txt");
  ofn_.lStructSize = 0;
  EXPECT_EQ(XDlgFileOpen(&ofn_), 1) << "it sets the size itself";
  EXPECT_EQ(ofn_.lStructSize, 76u);
  EXPECT_EQ(file_, folder_ + "/a.txt");
  std::string open = "\"" TAVRIX_PROGRAM "\" open >'" + tree_.Path("out") + "' 2>&1";
  EXPECT_EQ(system(open.c_str()), 0);
  EXPECT_EQ(tree_.Read("out"), folder_ + "/a.txt\n");
  Desktop("zenity", "exit 1");
  EXPECT_EQ(XDlgFileOpen(&ofn_), 0);
  EXPECT_EQ(WEXITSTATUS(system(open.c_str())), 1);
  EXPECT_EQ(tree_.Read("out"), "tavrix: no file was chosen\n");
}

}  // namespace
