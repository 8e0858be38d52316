// Listing 10,000 names in 100 directories, warm: XFileList beside std::filesystem and fts.

#include <benchmark/benchmark.h>
#include <fts.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "exports/tavrix32.h"

namespace {

namespace fs = std::filesystem;

const fs::path& Tree() {
  static const struct Made {
    fs::path root = fs::temp_directory_path() / "tavrix-list-bench";
    Made() {
      fs::remove_all(root);
      for (int dir = 0; dir < 100; ++dir) {
        fs::path inner = root / ("d" + std::to_string(dir % 10)) / ("inner" + std::to_string(dir));
        fs::create_directories(inner);
        for (int file = 0; file < 100; ++file)
          std::ofstream(inner /
                        ("name_" + std::to_string(dir * 100 + file) + (file % 8 ? ".c" : ".txt")));
      }
    }
    ~Made() { fs::remove_all(root); }
  } made;
  return made.root;
}

void BM_XFileList(benchmark::State& state) {
  std::string roots = Tree().string() + (state.range(0) ? "/*.txt" : "/*");
  char name[262];
  for (auto _ : state) {
    int64_t names = 0;
    while (XFileList(name, roots.c_str(), nullptr, FL_RECURSE)) ++names;
    state.SetItemsProcessed(state.items_processed() + names);
  }
}

void BM_StdFilesystem(benchmark::State& state) {
  for (auto _ : state) {
    int64_t names = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(Tree()))
      if (entry.is_regular_file() && (!state.range(0) || entry.path().extension() == ".txt"))
        ++names;
    state.SetItemsProcessed(state.items_processed() + names);
  }
}

void BM_Fts(benchmark::State& state) {
  std::string root = Tree().string();
  for (auto _ : state) {
    int64_t names = 0;
    char* roots[] = {root.data(), nullptr};
    FTS* walk = fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR | FTS_NOSTAT, nullptr);
    while (FTSENT* entry = fts_read(walk))
      if (entry->fts_info == FTS_NSOK && (!state.range(0) || strstr(entry->fts_name, ".txt")))
        ++names;
    fts_close(walk);
    state.SetItemsProcessed(state.items_processed() + names);
  }
}

BENCHMARK(BM_XFileList)->ArgName("txt")->Arg(0)->Arg(1);
BENCHMARK(BM_StdFilesystem)->ArgName("txt")->Arg(0)->Arg(1);
BENCHMARK(BM_Fts)->ArgName("txt")->Arg(0)->Arg(1);

}  // namespace

BENCHMARK_MAIN();
