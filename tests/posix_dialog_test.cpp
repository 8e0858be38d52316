// The file-open dialog, with programs that stand in for the desktop's.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "platform/win32.h"
#include "tests/support/tree.h"

namespace {

using tavrix_test::Tree;

class PosixDialog : public testing::Test {
 protected:
  PosixDialog() {
    setenv("PATH", (tree_.Path("bin") + ":/usr/bin:/bin").c_str(), 1);
    setenv("DISPLAY", ":77", 1);
    unsetenv("WAYLAND_DISPLAY");
    tree_.File("data/a.txt");
    ofn_ = {};
    ofn_.lStructSize = 76;
    ofn_.lpstrFile = file_;
    ofn_.nMaxFile = sizeof file_;
    ofn_.lpstrFileTitle = title_;
    ofn_.nMaxFileTitle = sizeof title_;
  }

  // A program of the desktop that runs this shell text.
  void Desktop(const std::string& name, const std::string& text) {
    tree_.File("bin/" + name, "#!/bin/sh\n" + text + "\n");
    std::filesystem::permissions(tree_.root() / "bin" / name, std::filesystem::perms::all);
  }

  // One that notes its arguments and prints a name.
  void Answer(const std::string& name, const std::string& path) {
    Desktop(name, "printf '%s\\n' \"$@\" >" + tree_.Path("arguments") + "\necho '" + path + "'");
  }

  Tree tree_;
  OPENFILENAMEA ofn_;
  char file_[260] = "";
  char title_[64] = "";
};

TEST_F(PosixDialog, RefusesRecordsThatItCannotRead) {
  Answer("zenity", tree_.Path("data/a.txt"));
  for (uint32_t size : {0u, 75u, 77u, 152u}) {
    ofn_.lStructSize = size;
    EXPECT_FALSE(GetOpenFileNameA(&ofn_));
    EXPECT_EQ(CommDlgExtendedError(), CDERR_STRUCTSIZE);
  }
  ofn_.lStructSize = 88;
  EXPECT_TRUE(GetOpenFileNameA(&ofn_));
  EXPECT_EQ(CommDlgExtendedError(), 0u);
}

TEST_F(PosixDialog, AsksZenityAndFillsTheRecord) {
  Answer("zenity", tree_.Path("data/a.txt"));
  std::string folder = tree_.Path("data");
  ofn_.lpstrFilter = "All\0*.*\0Text; $(touch x)\0*.txt;*.doc\0";
  ofn_.nFilterIndex = 2;
  ofn_.lpstrTitle = "--help `id`";
  ofn_.lpstrInitialDir = folder.c_str();
  SetLastError(55);
  ASSERT_TRUE(GetOpenFileNameA(&ofn_));
  EXPECT_EQ(GetLastError(), 55u);
  EXPECT_EQ(file_, folder + "/a.txt");
  EXPECT_STREQ(title_, "a.txt");
  EXPECT_STREQ(file_ + ofn_.nFileOffset, "a.txt");
  EXPECT_STREQ(file_ + ofn_.nFileExtension, "txt");
  EXPECT_EQ(tree_.Read("arguments"), "--file-selection\n--title=--help `id`\n--filename=" + folder +
                                         "/\n--file-filter=Text; $(touch x) | *.txt *.doc\n"
                                         "--file-filter=All | *\n");
}

TEST_F(PosixDialog, GoesOnToKdialogAndTakesACancel) {
  Desktop("zenity", "exit 5");
  Answer("kdialog", tree_.Path("data/a.txt"));
  ofn_.lpstrFilter = "Text\0*.txt\0All\0*.*\0";
  EXPECT_TRUE(GetOpenFileNameA(&ofn_));
  EXPECT_EQ(tree_.Read("arguments"), "--title\nOpen\n--getopenfilename\n./\n*.txt|Text\n*|All\n");
  Desktop("zenity", "exit 1");
  EXPECT_FALSE(GetOpenFileNameA(&ofn_));
  EXPECT_EQ(CommDlgExtendedError(), 0u);
}

TEST_F(PosixDialog, AsksAgainForANameThatTheFlagsRefuse) {
  // The first answer is missing, the second is a folder, the third will do.
  Desktop("zenity", "cd " + tree_.Path("data") +
                        "; echo x >>count; case $(wc -l <count) in 1) echo $PWD/missing;; 2) echo "
                        "$PWD;; *) echo $PWD/a.txt;; esac");
  ofn_.Flags = OFN_FILEMUSTEXIST | OFN_PATHMUSTEXIST;
  EXPECT_TRUE(GetOpenFileNameA(&ofn_));
  EXPECT_STREQ(title_, "a.txt");
  EXPECT_EQ(tree_.Read("data/count"), "x\nx\nx\n");
  // A program that never gives a name that will do is given up.
  Answer("zenity", tree_.Path("data/missing"));
  EXPECT_FALSE(GetOpenFileNameA(&ofn_));
  ofn_.Flags = OFN_PATHMUSTEXIST;
  ofn_.lpstrDefExt = "doc";
  EXPECT_TRUE(GetOpenFileNameA(&ofn_));
  EXPECT_STREQ(title_, "missing.doc");
}

TEST_F(PosixDialog, TellsTheSizeThatABufferNeeds) {
  Answer("zenity", "/a/long/name");
  ofn_.nMaxFile = 12;
  EXPECT_FALSE(GetOpenFileNameA(&ofn_));
  EXPECT_EQ(CommDlgExtendedError(), FNERR_BUFFERTOOSMALL);
  uint16_t needed;
  memcpy(&needed, file_, 2);
  EXPECT_EQ(needed, 13);
  file_[0] = 0;
  ofn_.nMaxFile = 13;
  EXPECT_TRUE(GetOpenFileNameA(&ofn_));
  EXPECT_EQ(ofn_.nFileExtension, 0);
}

// Runs the dialog in a child whose terminal is a new one, and types there. Gives the child's
// answer: the chosen name, or "-" after a cancel.
std::string OnTerminal(OPENFILENAMEA* ofn, const char* typed, std::string* shown) {
  int master = posix_openpt(O_RDWR | O_NOCTTY);
  int ends[2];
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0 || pipe(ends) != 0) return "?";
  pid_t child = fork();
  if (child == 0) {
    setsid();
    int terminal = open(ptsname(master), O_RDWR);
    ioctl(terminal, TIOCSCTTY, 0);
    std::string answer = GetOpenFileNameA(ofn) ? ofn->lpstrFile : "-";
    if (write(ends[1], answer.data(), answer.size()) < 0) _exit(1);
    _exit(0);
  }
  close(ends[1]);
  char bytes[512];
  shown->clear();
  ssize_t count;
  while (shown->find(": ") == std::string::npos &&
         (count = read(master, bytes, sizeof bytes)) > 0) {
    shown->append(bytes, static_cast<size_t>(count));
  }
  if (write(master, typed, strlen(typed)) < 0) return "?";
  count = read(ends[0], bytes, sizeof bytes);
  waitpid(child, nullptr, 0);
  close(ends[0]);
  close(master);
  return std::string(bytes, count > 0 ? static_cast<size_t>(count) : 0);
}

TEST_F(PosixDialog, AsksOnTheTerminalWithoutADisplay) {
  unsetenv("DISPLAY");
  std::string folder = tree_.Path("data"), shown;
  ofn_.lpstrInitialDir = folder.c_str();
  ofn_.lpstrTitle = "Which file";
  EXPECT_EQ(OnTerminal(&ofn_, "a.txt\n", &shown), folder + "/a.txt");
  EXPECT_EQ(shown, "Which file: ");
  EXPECT_EQ(OnTerminal(&ofn_, "\n", &shown), "-");
  strcpy(file_, "preset");
  EXPECT_EQ(OnTerminal(&ofn_, "\n", &shown), folder + "/preset");
}

TEST_F(PosixDialog, CancelsWithNobodyToAsk) {
  unsetenv("DISPLAY");
  pid_t child = fork();
  if (child == 0) {
    setsid();  // no terminal any more
    _exit(!GetOpenFileNameA(&ofn_) && CommDlgExtendedError() == 0 ? 0 : 1);
  }
  int status = 1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

}  // namespace
