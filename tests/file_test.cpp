// Files: how they open, what goes with them, companions, names in parts, and growing in memory.
#include "tests/support/opened.h"
#include "tests/support/test.h"

namespace quern {
namespace {

using namespace tavrix_test;
using tavrix_test::Tree;

// What opens with each access value, mapped (m) and as a stream: a matrix of sizes with "r" or "w",
// or trails.
TEST(File, OpensByAccessAndPlace) {
  const char* const matrix[][2] = {
      {"access", "m1  m8  m9  m2  m10 m16 m18 m32 m64 1   2   16  18  32  64"},
      {"f", "     5r  5r  5r  5w  5w  14  5w  0w  0w  5r  5r  24  5w  0w  5w"},
      {"none", "  11  11  11  16  16  0w  0w  0w  15  21  22  0w  0w  0w  25"},
      {"dir", "   11  11  11  16  16  14  17  13  15  21  22  24  26  23  25"},
      {"none/f", "11  11  11  16  16  14  17  13  15  21  22  24  26  23  25"},
      {"4g", "    11  11  11  16  16  14  -   -   -   -   -   24  -   -   -"},
      {"held", "  65536r - -  16  16  14  17  13  15  65536r - 24"},
      {"access", "m0  m3  m4  m33 0   3   66"},
      {"f", "     19  19  19  19  29  29  29"},
  };
  Tree tree;
  tree.Dir("dir");
  FileObject* held = Open(tree, "held", FO_MAPPED | 18);
  tree.File("4g");
  std::filesystem::resize_file(tree.Path("4g"), (uint64_t{4} << 30) + 5);
  std::string access;
  for (const auto& [name, results] : matrix) {
    if (strcmp(name, "access") == 0) access = results;
    std::istringstream columns(access), wanted(results);
    for (std::string flags, result; columns >> flags && wanted >> result;) {
      if (flags == result || result == "-") continue;
      tree.File("f", "12345");
      tree.Remove("none");
      const int mapped = flags[0] == 'm', number = atoi(flags.c_str() + mapped);
      const uint32_t word = static_cast<uint32_t>(number) | (mapped ? FO_MAPPED : 0);
      EXPECT_EQ(Opened(tree.Path(name), word), result) << name << " " << flags;
      EXPECT_EQ(tree.Read("f"), *name == 'f' && result == "0w" ? "" : "12345") << flags;
      EXPECT_EQ(tree.Exists("none"), strcmp(name, "none") == 0 && result == "0w") << flags;
    }
  }
  FileClass(reinterpret_cast<uintptr_t>(held));
  EXPECT_EQ(tree.Read("held"), "") << "cut in the end";
  tree.File("full", std::string(65'536, 'x'));  // without a byte for a zero behind it
  EXPECT_EQ(Opened(tree.Path("full"), FO_MAPPED | 2 | FO_ZERO_END | FO_GROW_NONE), "65536w");
}

TEST(File, NameRecordsOutliveTheirFlags) {
  Tree tree;
  tree.File("f.txt", "12345");
  FileObject* file = Open(tree, "f.txt", FO_MAPPED | 1 | FO_NAME | FO_STAT);
  FileNameRec* record = file->pName;
  EXPECT_EQ(record->szFull + std::string(record->szBase), tree.Path("f.txt") + "f");
  EXPECT_EQ(record->dwAttributes & ~0x2000u, FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_TRUE(record->nSizeLow == 5 && record->ftLastWrite.dwHighDateTime != 0);
  // Nothing fits where the view is; afterwards there is none, and the next open maps again.
  EXPECT_FALSE(FileOpen(file, record->szFull, FO_MAPPED | 1));
  EXPECT_EQ(FileOpen(file, nullptr, FO_MAPPED | 1), file);
  EXPECT_EQ(FileNameRefresh(), record);
  EXPECT_EQ(Close(), "07:02");
  EXPECT_FALSE(FileNameRefresh() || FileOpen(nullptr, nullptr, 1));
  EXPECT_EQ(Close(), "06.01.01");
}

TEST(File, CompanionsAreSearchedBesideThenHereThenAlongThePath) {
  Tree tree;
  for (const char* place : {"app", "here", "path"}) tree.File(std::string(place) + "/t.ini", place);
  tree.File("app/v1.ini", "dot");
  std::filesystem::current_path(tree.root() / "here");
  SetEnvironmentVariableA("path", (tree.Path("none") + ";" + tree.Path("path")).c_str());
  const std::string tool = tree.Path("app/t.exe"), x257(257, 'x');
  const struct {
    std::string base;
    const char *extension, *wanted;
    uint32_t flags = 0;
  } rows[] = {
      {tool, nullptr, "app", FO_SEP_LINE},
      {tree.Path("app/v1.2/t"), nullptr, "dot", FO_SEP_SECTION},
      {"t", ".ini", "here"},
      {tree.Path("none/t"), ".ini", "here"},
      {tree.Path("none/t"), ".ini", "path"},
      {tool, nullptr, "11", FO_SEP_BLOCK},  // t.log is nowhere
      {tool, nullptr, "01"},
      {x257 + "x", ".x", "02"},
  };
  for (const auto& row : rows) {
    if (row.wanted == std::string("path")) tree.Remove("here/t.ini");
    const uint32_t flags = row.flags | FO_MAPPED | FO_READ;
    const bool opens = FileOpenBeside(row.base.c_str(), row.extension, flags);
    EXPECT_EQ(opens ? Data() : ClearedTrail(), row.wanted) << row.base;
    EXPECT_EQ(Close(), "");
  }
  std::filesystem::current_path(tree.root().parent_path());
}

TEST(File, NamesAreTakenApart) {
  const std::string n29(29, 'n'), n254(254, 'n'), n255 = n254 + "n";
  const std::string rows[][2] = {
      {"C:\\dir\\sub\\f.txt", "C|\\dir\\sub|f.txt|f|txt"},
      {"\\\\srv\\share.x\\f", "srv|\\share.x|f|f|"},
#ifndef _WIN32
      {"/dir/a:.f.a.b", "|/dir/a|.f.a.b|.f.a|b"},
      // The longest part of each field, and one that is left out for a byte more.
      {"\\\\" + n29 + "\\d\\f", n29 + "|\\d|f|f|"},
      {"\\\\" + n29 + "n\\d\\f", "|\\d|f|f|"},
      {"/" + n254 + "/f", "|/" + n254 + "|f|f|"},
      {"/a." + n255, "|||/a|" + n255},
      {"/a." + n255 + "n", "|||/a|"},
#endif
  };
  FileNameRec rec;
  for (const auto& [name, parts] : rows) {
    EXPECT_EQ(FileSplitPath(name.c_str(), &rec), 0);
    const std::string start = std::string(rec.szRoot) + "|" + rec.szDir + "|" + rec.szName;
    EXPECT_EQ(start + "|" + rec.szBase + "|" + rec.szExt, parts);
  }
}

TEST(Map, GrowsAtOneAddressToTheLargestFile) {
  Tree tree;
  FileObject* file = Open(tree, "large", FO_MAPPED | 18 | FO_GROW_1M);
  char* base = file->pView;
  base[0] = 'b';
  for (int32_t step : {70'000, 1'000'001, 88'929'999, 100'000'000}) {
    ASSERT_EQ(FileResize(step), 0);
    base[file->nSize - 1] = 'e';
  }
  EXPECT_TRUE(file->pView == base && *base == 'b');
  EXPECT_EQ(FileResize(9'999'999), -4);  // with its growth beyond what can be mapped
  EXPECT_EQ(Close(), "04.02:14");
  EXPECT_EQ(std::filesystem::file_size(tree.Path("large")), 190'000'000u);
}

TEST(Map, FaultsGrowTheFile) {
  Tree tree;
  tree.File("r", std::string(20'000, 'r'));
  FileObject* file = nullptr;
  // The answer to an access at an offset, or what is mapped if it is to go on.
  auto fault = [&](int64_t offset, bool write = false, uint32_t code = EXCEPTION_ACCESS_VIOLATION) {
    const auto address = reinterpret_cast<uintptr_t>(file->pView) + static_cast<uintptr_t>(offset);
    EXCEPTION_RECORD record = {};
    record.ExceptionCode = code;
    record.ExceptionInformation[0] = write;
    record.ExceptionInformation[1] = address;
    EXCEPTION_POINTERS pointers = {&record, nullptr};
    LONG answer = FileFaultFilter(nullptr, &pointers);
    return answer == -1 ? static_cast<int64_t>(file->nMapped) : answer;
  };
  file = Open(tree, "f", FO_MAPPED | 18);
  file->nGrow = 10'000, file->nMaxSize = 1'000'000;
  EXPECT_EQ(fault(0, false, 0xC0000094) + fault(-1) + fault(1'000'000), 0);
  EXPECT_EQ(fault(999'999, true), 1'048'576);
  EXPECT_EQ(fault(130'000), 196'608);  // 140,000 and the growth, rounded
  file->nGrow = 65'536;
  EXPECT_EQ(fault(65'535), 131'072);
  file->nMaxSize = 200'000'000;
  EXPECT_EQ(fault(199'999'999), 0);  // "go on", but it could not grow
  EXPECT_EQ(Close().substr(0, 8), "01.02:14");
  // Nothing makes what is mapped for reading writable.
  file = Open(tree, "r", FO_MAPPED | FO_READ | FO_KEEP_NAME);
  EXPECT_EQ(FileMap(1000), 0);
  EXPECT_EQ(fault(999, true), 0);
  EXPECT_EQ(fault(1000, true), 4096);
  EXPECT_EQ(Close(), "");
}

#ifndef _WIN32

// A folder for temporary files in which backups can be made.
std::string BackupFolder(const Tree& tree) {
  tree.Dir("t/" + tree.Path("t").substr(1));
  setenv("TMPDIR", tree.Path("t").c_str(), 1);
  return tree.Path("t") + "/" + tree.Path("t") + "/";
}

// A child that ends, collects or reverts changes nothing of its parent's files.
TEST(File, AForkedChildLeavesItsParentsFilesAlone) {
  Tree tree;
  BackupFolder(tree);
  tree.File("f", "12345");
  tree.File("s", "stream");
  FileObject* file = Open(tree, "f", FO_MAPPED | 2 | FO_BACKUP);
  FileAppendf("678");
  FILE* stream = Open(tree, "s", FO_WRITE)->pStream;
  FileObject* streamed = CurrentFile;
  fseek(stream, 3, SEEK_SET);
  fputc('!', stream);
  for (int way = 0; way < 3; ++way) {
    const int code = InChild([&] {
      for (FileObject* each : {file, streamed})
        if (way == 1 && (CurrentFile = each, FileRevert()) != 0) return 2;
      if (way == 2) ClsGarbage(kFileTag);
      return ErrCurrent && ErrCurrent->nCount ? 3 : 0;
    });
    EXPECT_EQ(code, 0) << way;
    EXPECT_EQ(tree.Read("s"), "stream");
    EXPECT_TRUE(std::filesystem::exists(file->pszBackup));
    EXPECT_EQ(tree.Read("f").size(), 65'536u) << "not cut";
    const std::string append = "\"" TAVRIX_PROGRAM "\" append " + tree.Path("f") + " x 2>/dev/null";
    EXPECT_EQ(system(append.c_str()), 0x100) << "the parent is still the only writer";
  }
  for (FileObject* each : {file, streamed}) FileClass(reinterpret_cast<uintptr_t>(each));
  EXPECT_EQ(ClearedTrail() + tree.Read("s") + tree.Read("f"), "str!am12345678");
}

// Another user prepares the place of a backup with a link, or puts a file of his own there.
TEST(File, BackupsAreNewFilesOfTheirOwner) {
  Tree tree;
  const std::string folder = BackupFolder(tree), name = tree.Path("f"), old(200'000, 'f');
  tree.File("foreign", "foreign");
  for (bool linked : {false, true}) {
    tree.File("f", old);
    chmod(name.c_str(), 0640);
    StandIn<int(const char*, int, unsigned)> prepare(
        "open", [&](const char* path, int flags, unsigned mode) {
          const bool copy = linked && std::string(path).starts_with(folder) && flags & O_CREAT;
          if (copy) std::filesystem::create_symlink(tree.Path("foreign"), path);
          return open(path, flags, mode);
        });
    const std::string backup = Open(tree, "f", FO_MAPPED | 2 | FO_BACKUP)->pszBackup;
    EXPECT_EQ(ErrLine, linked ? 163 : 0);
    EXPECT_TRUE(backup.starts_with(folder)) << backup;
    struct stat facts;
    EXPECT_EQ(stat(backup.c_str(), &facts), 0);
    EXPECT_TRUE(linked || (facts.st_mode & 0777) == 0600);
    std::filesystem::rename(backup, backup + ".moved");
    std::filesystem::copy_file(tree.Path("foreign"), backup);
    CurrentFile->pView[0] = '!';
    EXPECT_EQ(FileAppendf("678"), 3);
    EXPECT_EQ(FileRevert(), linked ? -2 : 0);
    EXPECT_EQ(ClearedTrail(), linked ? "02.03.02" : "03.02");  // the end of a file without a handle
    EXPECT_TRUE(tree.Read("f") == (linked ? "!" + old.substr(1) : old));
    EXPECT_EQ(tree.Read("foreign"), "foreign");
    EXPECT_EQ(stat(name.c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, 0640u);
    EXPECT_EQ(std::filesystem::exists(backup), linked);
  }
}

#endif

}  // namespace
}  // namespace quern
