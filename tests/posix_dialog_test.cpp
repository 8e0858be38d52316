// The file-open dialog, with programs that stand in for the desktop's.
#include "tests/support/test.h"

namespace {

class PosixDialog : public testing::Test {
 protected:
  PosixDialog() {
    setenv("PATH", (tree_.Path("bin") + ":/usr/bin:/bin").c_str(), 1);
    setenv("DISPLAY", ":77", 1);
    unsetenv("WAYLAND_DISPLAY");
    for (const char* name : {"data/a.txt", "data/plain"}) tree_.File(name);
    ofn_.lStructSize = 76;
    ofn_.lpstrFile = file_;
    ofn_.nMaxFile = sizeof file_;
    ofn_.lpstrInitialDir = folder_.c_str();
  }

  // A program of the desktop that notes its arguments and runs this shell text.
  void Desktop(const std::string& name, const std::string& text) {
    const std::string note = "printf '%s\\n' \"$@\" >arguments; echo x >>count\n";
    tree_.File("bin/" + name, "#!/bin/sh\ncd " + folder_ + "\n" + note + text + "\n");
    std::filesystem::permissions(tree_.root() / "bin" / name, std::filesystem::perms::all);
  }

  // The name below the folder that comes of a program's text, or "<error>" with the dialog's own.
  std::string Asked(const std::string& text) {
    Desktop("zenity", text);
    SetLastError(55);
    if (!GetOpenFileNameA(&ofn_)) return "<" + std::to_string(CommDlgExtendedError()) + ">";
    EXPECT_EQ(GetLastError(), 55u);
    return std::string(file_).starts_with(folder_ + "/") ? file_ + folder_.size() + 1 : file_;
  }

  tavrix_test::Tree tree_;
  std::string folder_ = tree_.Path("data");
  OPENFILENAMEA ofn_ = {};
  char file_[260] = "";
};

TEST_F(PosixDialog, HandsTheRecordOverAndFillsIt) {
  char title[6] = "";
  ofn_.lpstrFileTitle = title;
  ofn_.nMaxFileTitle = sizeof title;
  ofn_.lpstrFilter = "All\0*.*\0Text; $(touch x)\0*.txt;*.doc\0";
  ofn_.nFilterIndex = 2;
  ofn_.lpstrTitle = "--help `id`";
  EXPECT_EQ(Asked("echo $PWD/a.txt"), "a.txt");
  EXPECT_EQ(std::string(title) + " " + (file_ + ofn_.nFileExtension), "a.txt txt");
  EXPECT_EQ(tree_.Read("data/arguments"),
            "--file-selection\n--title=--help `id`\n--filename=" + folder_ +
                "/\n--file-filter=Text; $(touch x) | *.txt *.doc\n--file-filter=All | *\n");
  // Where the first program does not work, the second one is asked.
  Desktop("kdialog", "echo /a/long/name");
  ofn_.lStructSize = 0;  // the export sets it itself
  ofn_.nMaxFile = 12;
  file_[0] = 0;
  Desktop("zenity", "exit 5");
  EXPECT_TRUE(!XDlgFileOpen(&ofn_) && file_[0] == 13) << "the size that would do";
  EXPECT_EQ(tree_.Read("data/arguments"), "--title\n--help `id`\n--getopenfilename\n" + folder_ +
                                              "/\n*.txt *.doc|Text; $(touch x)\n*|All\n");
  ofn_.nMaxFile = 13;
  EXPECT_TRUE(XDlgFileOpen(&ofn_) && file_ == std::string("/a/long/name"));
}

TEST_F(PosixDialog, CompletesNamesAndAsksAgainForThoseThatTheFlagsRefuse) {
  const std::string longest(257 - folder_.size(), 'n');
  constexpr DWORD kPath = OFN_PATHMUSTEXIST, kFile = OFN_FILEMUSTEXIST | OFN_PATHMUSTEXIST;
  const std::tuple<DWORD, const char*, std::string, std::string> kRows[] = {
      {kPath, "doc", "echo $PWD/plain", "plain"},
      {kPath, "doc", "echo $PWD/new", "new.doc"},
      {kPath, "doc", "echo $PWD/none/new", "<0>"},
      {kPath, "doc", "echo $PWD/" + longest, "<0>"},  // too long with the extension
      {0, "", "printf $PWD/none/new", "none/new"},    // without a line end
      {0, nullptr, "exit 0", "<0>"},
      {kFile, nullptr, "echo $PWD/missing", "<0>"},  // gives up some time
      {kFile, nullptr,
       "case $(wc -l <count) in 1) echo $PWD/missing;; 2) echo $PWD;; *) echo $PWD/a.txt;; esac",
       "a.txt"}};
  for (const auto& [flags, extension, text, chosen] : kRows) {
    tree_.Remove("data/count");
    file_[0] = 0;
    ofn_.Flags = flags;
    ofn_.lpstrDefExt = extension;
    EXPECT_EQ(Asked(text), chosen);
  }
}

TEST_F(PosixDialog, AsksOnTheTerminalWithoutADisplay) {
  unsetenv("DISPLAY");
  ofn_.lpstrTitle = "Which file";
  for (const auto& [preset, typed, expected] :
       {std::tuple("", "a.txt\n", "a.txt"), {"", "\n", "<0>"}, {"preset", "\n", "preset"}}) {
    tavrix_test::Terminal terminal(200, 3, {.typedAhead = typed});
    strcpy(file_, preset);
    terminal.Run([&, expected = expected] { EXPECT_EQ(Asked(""), expected); });
    const std::string shown = *preset ? "Which file [preset]:" : "Which file:";
    EXPECT_NE(terminal.Text().find(shown), std::string::npos) << terminal.Text();
  }
  // In the background there is nobody to ask, and a read would stop the process.
  tavrix_test::Terminal terminal(200, 3);
  terminal.Run([&] {
    EXPECT_EQ(tavrix_test::InChild([&] { return setpgid(0, 0) == 0 && Asked("") == "<0>"; }), 1);
  });
  EXPECT_EQ(terminal.Text(), "");
}

}  // namespace
