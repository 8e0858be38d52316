// Paths taken apart, and the name records of files.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "platform/win32.h"
#include "quern/cfile.h"
#include "tests/support/opened.h"
#include "tests/support/trail.h"
#include "tests/support/tree.h"

namespace quern {
namespace {

using tavrix_test::ClearedTrail;
using tavrix_test::Close;
using tavrix_test::Data;
using tavrix_test::Opened;
using tavrix_test::Tree;

std::string Parts(const char* name) {
  FileNameRec rec;
  memset(&rec, '~', sizeof rec);
  EXPECT_EQ(FileSplitPath(name, &rec), 0);
  return std::string(rec.szRoot) + "|" + rec.szDir + "|" + rec.szName + "|" + rec.szBase + "|" +
         rec.szExt;
}

TEST(Name, PathsAreSplit) {
  EXPECT_EQ(Parts("C:\\dir\\sub\\f.txt"), "C|\\dir\\sub|f.txt|f|txt");
  EXPECT_EQ(Parts("C:\\f.txt"), "C||\\f.txt|\\f|txt");
  EXPECT_EQ(Parts("C:\\d.x\\f"), "C|\\d.x|f|f|");
  EXPECT_EQ(Parts("\\\\srv\\share\\d\\f.a.b"), "srv|\\share\\d|f.a.b|f.a|b");
#ifndef _WIN32
  EXPECT_EQ(Parts("\\\\srv"), "srv||||");
  EXPECT_EQ(Parts("\\\\\\x\\y"), "\\x\\y||||");
  EXPECT_EQ(Parts("/"), "||/|/|");
  EXPECT_EQ(Parts("/dir/a:b.c"), "|/dir/a|b.c|b|c");
  EXPECT_EQ(Parts("/dir/sub/f.txt"), "|/dir/sub|f.txt|f|txt");
  EXPECT_EQ(Parts("/f.txt"), "||/f.txt|/f|txt");
  EXPECT_EQ(Parts("/c/dir/f.txt"), "c|dir|f.txt|f|txt");
  EXPECT_EQ(Parts("/d.x/f"), "|/d.x|f|f|");
  EXPECT_EQ(Parts("/dir/.profile"), "|/dir|.profile||profile");
  EXPECT_EQ(Parts("/dir/sub/"), "|/dir/sub|||");
  EXPECT_EQ(Parts(("/dd/" + std::string(250, 'n') + ".txt").c_str()),
            "|/dd|" + std::string(250, 'n') + ".txt|" + std::string(250, 'n') + "|txt");
  // The longest part of each field, and one that is left out for a byte more.
  std::string n29(29, 'n'), n254(254, 'n'), n255 = n254 + "n";
  const std::string longest[][2] = {{"\\\\" + n29 + "\\d\\f", n29 + "|\\d|f|f|"},
                                    {"\\\\" + n29 + "n\\d\\f", "|\\d|f|f|"},
                                    {"/" + n254 + "/f", "|/" + n254 + "|f|f|"},
                                    {"/" + n255 + "/f", "||f|f|"},
                                    {"/d/" + n255, "d||" + n255 + "|" + n255 + "|"},
                                    {"/d/" + n255 + "n", "d||||"},
                                    {"/a." + n255, "|||/a|" + n255},
                                    {"/a." + n255 + "n", "|||/a|"}};
  for (const auto& row : longest) EXPECT_EQ(Parts(row[0].c_str()), row[1]);
#endif
  FileNameRec rec;
  EXPECT_EQ(FileSplitPath(nullptr, &rec), -1);
  EXPECT_EQ(FileSplitPath("x", nullptr), -2);
  EXPECT_EQ(FileSplitPath("", &rec), -2);
  EXPECT_EQ(FileSplitPath(std::string(300, 'x').c_str(), &rec), -2);
  EXPECT_STREQ(rec.szName, "");
  EXPECT_EQ(FileNameRefresh(), nullptr);
  EXPECT_EQ(ClearedTrail(), "01.01.02.02.02.01");
}

TEST(Name, NameRecordsAreFilledAndOutliveTheirFlags) {
  Tree tree;
  tree.File("there.txt", "12345");
  std::string there = tree.Path("there.txt");
  FileObject* file = FileOpen(nullptr, there.c_str(), FO_MAPPED | 1 | FO_NAME | FO_STAT);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->pName->szFull, there);
  EXPECT_STREQ(file->pName->szBase, "there");
  EXPECT_EQ(file->pName->dwAttributes & ~0x2000u, FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(file->pName->nSizeLow, 5u);
  EXPECT_NE(file->pName->ftLastWrite.dwHighDateTime, 0u);
  EXPECT_EQ(FileNameRefresh(), file->pName);
  FileNameRec* record = file->pName;
  // Nothing fits where the view is; afterwards there is none, and the next open maps again.
  EXPECT_EQ(FileOpen(file, there.c_str(), FO_MAPPED | 1), nullptr);
  EXPECT_EQ(file->pName, record);
  EXPECT_EQ(file->pView, nullptr);
  EXPECT_EQ(ClearedTrail(), "07:02");
  EXPECT_EQ(FileOpen(file, nullptr, FO_MAPPED | 1), file);  // by its full path
  EXPECT_EQ(Data(), "12345");
  EXPECT_EQ(Close(), "");
  file = FileOpen(nullptr, there.c_str(), 1 | FO_NAME);
  EXPECT_EQ(FileOpen(nullptr, nullptr, 64), file);
  EXPECT_EQ(fwrite("!", 1, 1, file->pStream), 1u);  // at the end
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(tree.Read("there.txt"), "12345!");
  tree.File("there.txt", "12345");
  // A stream has no handle to ask.
  EXPECT_EQ(Opened(there, 1 | FO_STAT), "03.03");
  EXPECT_EQ(Opened(there, FO_MAPPED | 2 | FO_KEEP_NAME | FO_STAT), "ok");
  // Size and times are those of the current file, whichever is named.
  FileNameRec rec;
  rec.nSizeHigh = 7;
  EXPECT_EQ(FileStat(there.c_str(), &rec), -3);
  EXPECT_EQ(rec.nSizeHigh, 0u);
  EXPECT_EQ(FileStat(there.c_str(), nullptr), -1);
  EXPECT_EQ(FileStat(tree.Path("none").c_str(), &rec), -2);
  EXPECT_EQ(ClearedTrail(), "02.01.03");
  tree.File("huge");
  std::filesystem::resize_file(tree.Path("huge"), (uint64_t{3} << 32) + 10);
  file = FileSelect(nullptr);
  EXPECT_EQ(FileNameRefresh(), nullptr);
  file->hFile = CreateFileA(tree.Path("huge").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  EXPECT_EQ(FileStat(there.c_str(), &rec), 0);
  EXPECT_EQ(rec.nSizeLow, 10u);
  EXPECT_EQ(rec.nSizeHigh, 3u);
  EXPECT_EQ(Close(), "01.01");
}

}  // namespace
}  // namespace quern
