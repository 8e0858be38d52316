#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "exports/tavrix32.h"
#include "quern/ccsl.h"
#include "tools/tavrix/commands.h"

namespace {

constexpr uint32_t kUsualWidth = 80;

// The table of colour pairs, each as its number in its own colours.
int Colors() {
  using namespace quern;
  for (int row = 0; row < 16; ++row) {
    for (int column = 0; column < 16; ++column) {
      int32_t pair = CslColorPair(0, column * 16 + row, kColorPair);
      CslSet(CSL_TEXT_COLOUR, static_cast<uintptr_t>(pair), 0);
      printf(" %02X ", static_cast<unsigned>(pair));
    }
    CslSet(CSL_RESTORE_COLOUR, 0, 0);
    putchar('\n');
  }
  return 0;
}

// Counts the names, then goes through them again with a bar as wide as the console.
int Progress(const std::string& roots) {
  char name[262];
  auto walk = [&](auto&& each) {
    uint32_t count = 0;
    while (XFileList(name, roots.c_str(), nullptr, FL_RECURSE)) each(++count);
    return count;
  };
  uint32_t names = walk([](uint32_t) {});
  uint32_t width = quern::ConsoleWidth();
  if (width == 0) width = kUsualWidth;
  width -= width > 1;  // the last column would wrap
  if (names != 0) {
    quern::CslProgress(quern::PROGRESS_START, 1, 0, names, width, '#');
    walk([&](uint32_t count) {
      quern::CslProgress(quern::PROGRESS_UP, count, 0, names, width, '#');
    });
    putchar('\n');
  }
  if (PrintTrail()) return 1;
  printf("%u names\n", names);
  return 0;
}

int Expand(const char* text) {
  quern::CslExpand(text);
  char* expanded = quern::CslExpandTake();
  puts(expanded ? expanded : "");
  free(expanded);
  return PrintTrail() ? 1 : 0;
}

}  // namespace

void AddConsoleCommands(CLI::App& app, int& result) {
  CLI::App* colors = app.add_subcommand("colors", "Show the table of colour pairs.");
  colors->callback([&result] { result = Colors(); });

  auto roots = std::make_shared<std::string>();
  CLI::App* progress =
      app.add_subcommand("progress", "Go through files and subdirectories with a progress bar.");
  progress->add_option("ROOTS", *roots, "Roots, split by ';', as for the command list")->required();
  progress->callback([=, &result] { result = Progress(*roots); });

  auto text = std::make_shared<std::string>();
  CLI::App* expand =
      app.add_subcommand("expand", "Replace %NAME% by the values of environment variables.");
  expand->add_option("TEXT", *text, "The text; without a pair of % the name of a variable")
      ->required();
  expand->callback([=, &result] { result = Expand(text->c_str()); });
}
