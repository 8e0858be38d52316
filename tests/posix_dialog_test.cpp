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
    tree_.File("data/plain");
    ofn_.lStructSize = 76;
    ofn_.lpstrFile = file_;
    ofn_.nMaxFile = sizeof file_;
    ofn_.lpstrFileTitle = title_;
    ofn_.nMaxFileTitle = sizeof title_;
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
    return Asked();
  }
  std::string Asked() {
    SetLastError(55);
    const bool chosen = GetOpenFileNameA(&ofn_);
    EXPECT_EQ(GetLastError(), 55u);
    if (!chosen) return "<" + std::to_string(CommDlgExtendedError()) + ">";
    EXPECT_EQ(file_ + ofn_.nFileOffset, std::string(title_));
    return std::string(file_).starts_with(folder_ + "/") ? file_ + folder_.size() + 1 : file_;
  }

  tavrix_test::Tree tree_;
  std::string folder_ = tree_.Path("data");
  OPENFILENAMEA ofn_ = {};
  char file_[260] = "", title_[260] = "";
};

TEST_F(PosixDialog, HandsTheRecordOverAndFillsIt) {
  ofn_.lpstrFilter = "All\0*.*\0Text; $(touch x)\0*.txt;*.doc\0";
  ofn_.nFilterIndex = 2;
  ofn_.lpstrTitle = "--help `id`";
  EXPECT_EQ(Asked("echo $PWD/a.txt"), "a.txt");
  EXPECT_STREQ(file_ + ofn_.nFileExtension, "txt");
  file_[0] = 0;
  EXPECT_EQ(tree_.Read("data/arguments"),
            "--file-selection\n--title=--help `id`\n--filename=" + folder_ +
                "/\n--file-filter=Text; $(touch x) | *.txt *.doc\n"
                "--file-filter=All | *\n");
  ofn_.lStructSize = 77;
  EXPECT_EQ(Asked(), "<" + std::to_string(CDERR_STRUCTSIZE) + ">");
  ofn_.lStructSize = 88;
  EXPECT_EQ(Asked(), "a.txt");
}

TEST_F(PosixDialog, GoesOnToKdialogAndTakesACancel) {
  Desktop("kdialog", "echo /a/long/name");
  ofn_.lpstrFilter = "Text\0*.txt\0All\0*.*\0";
  ofn_.lpstrInitialDir = nullptr;
  ofn_.nMaxFile = 12;
  EXPECT_EQ(Asked("exit 5"), "<" + std::to_string(FNERR_BUFFERTOOSMALL) + ">");
  EXPECT_EQ(file_[0], 13) << "the size that would do";
  EXPECT_EQ(tree_.Read("data/arguments"),
            "--title\nOpen\n--getopenfilename\n./\n*.txt|Text\n*|All\n");
  ofn_.nMaxFile = 13;
  EXPECT_EQ(Asked(), "/a/long/name");
  EXPECT_EQ(ofn_.nFileExtension, 0);
  EXPECT_EQ(Asked("exit 1"), "<0>");
  EXPECT_EQ(WEXITSTATUS(system("\"" TAVRIX_PROGRAM "\" open 2>/dev/null")), 1);
}

TEST_F(PosixDialog, CompletesNamesAndAsksAgainForThoseThatTheFlagsRefuse) {
  const std::string longest(257 - folder_.size(), 'n');
  constexpr DWORD kPath = OFN_PATHMUSTEXIST, kFile = OFN_FILEMUSTEXIST | OFN_PATHMUSTEXIST;
  const struct {
    DWORD flags;
    const char* extension;
    std::string text, chosen;
  } kRows[] = {
      {kPath, "doc", "echo $PWD/plain", "plain"},
      {kPath, "doc", "echo $PWD/new", "new.doc"},
      {kPath, "doc", "echo $PWD/new.c", "new.c"},
      {kPath, "doc", "echo $PWD/none/new", "<0>"},
      {kPath, "doc", "echo $PWD/" + longest, "<0>"},
      {kPath, "doc", "echo " + std::string(258, 'r'), "<0>"},  // too long where it is not relative
      {0, nullptr, "printf $PWD/a.txt", "a.txt"},              // without a line end
      {0, nullptr, "echo $PWD", "<0>"},
      {kFile, nullptr, "echo $PWD/missing", "<0>"},  // gives up some time
      {kFile, nullptr, "[ $(wc -l <count) = 1 ] && echo $PWD/missing || echo $PWD/a.txt", "a.txt"},
  };
  for (const auto& row : kRows) {
    tree_.Remove("data/count");
    file_[0] = 0;
    ofn_.Flags = row.flags;
    ofn_.lpstrDefExt = row.extension;
    EXPECT_EQ(Asked(row.text), row.chosen) << row.text;
  }
  EXPECT_EQ(tree_.Read("data/count"), "x\nx\n");
}

TEST_F(PosixDialog, AsksOnTheTerminalWithoutADisplay) {
  unsetenv("DISPLAY");
  ofn_.lpstrTitle = "Which file";
  for (const auto& [preset, typed, expected] :
       {std::tuple("", "a.txt\n", "a.txt"), {"", "\n", "<0>"}, {"preset", "\n", "preset"}}) {
    strcpy(file_, preset);
    tavrix_test::Terminal terminal(200, 3, {.typedAhead = typed});
    EXPECT_EQ(terminal.Run([&, expected = expected] { EXPECT_EQ(Asked(), expected); }), 0);
    const std::string shown = *preset ? "Which file [preset]:" : "Which file:";
    EXPECT_NE(terminal.Text().find(shown), std::string::npos) << terminal.Text();
  }
  file_[0] = 0;
  // Nobody to ask is a cancel: without a terminal, and in the background of one, which stops.
  auto cancels = [&](bool background) {
    background ? setpgid(0, 0) : setsid();
    return Asked() == "<0>" ? 7 : 1;
  };
  tavrix_test::Terminal terminal(200, 3);
  terminal.Run([&] {
    for (bool background : {false, true})
      EXPECT_EQ(tavrix_test::InChild([&] { return cancels(background); }), 7);
  });
  EXPECT_EQ(terminal.Text(), "");
}

}  // namespace
