#include <cstdio>
#include <memory>
#include <string>

#include "exports/tavrix32.h"
#include "tools/tavrix/commands.h"

namespace {

constexpr uint32_t kDeepest = 0x7FFFFF;  // of the depth's bits, those that are no other flag

struct ListOptions {
  std::string roots;
  std::string patterns;
  bool hasPatterns = false;
  uint32_t flags = 0;
};

int List(const ListOptions& options) {
  const char* patterns = options.hasPatterns ? options.patterns.c_str() : nullptr;
  char name[262];
  uint32_t flags = options.flags;
  while (XFileList(name, options.roots.c_str(), patterns, flags)) {
    puts(name);
    if (flags & FL_FIRST) break;
    flags &= ~FL_RESTART;  // again on every call, it would go round the list for ever
  }
  return PrintTrail() ? 1 : 0;
}

}  // namespace

void AddListCommand(CLI::App& app, int& result) {
  auto options = std::make_shared<ListOptions>();
  CLI::App* list = app.add_subcommand("list", "List file names.");
  list->add_option(
          "ROOTS", options->roots,
          "Roots, split by ';': directories, or directories with a pattern; %NAME% is expanded")
      ->required();
  CLI::Option* patterns =
      list->add_option("PATTERNS", options->patterns, "Patterns with * and ?, split by ';'");
  auto depth = std::make_shared<std::string>();
  CLI::Option* recurse = list->add_flag("--recurse{0}", *depth,
                                        "Enter subdirectories; --recurse=DEPTH: that many levels "
                                        "(other flags count as a depth, too)");
  const struct {
    const char* name;
    uint32_t flag;
    const char* help;
  } kFlags[] = {
      {"--dirs", FL_DIRS, "Report directories that match, too"},
      {"--no-files", FL_NO_FILES, "Do not report files"},
      {"--as-found", FL_AS_FOUND, "Report names as found instead of full paths"},
      {"--quote", FL_QUOTE, "Quote names with a blank or a tab in them"},
      {"--first", FL_FIRST, "Report the first name only"},
      {"--restart", FL_RESTART, "Run the start-up steps again"},
  };
  for (const auto& entry : kFlags) {
    uint32_t flag = entry.flag;
    list->add_flag_callback(
        entry.name, [options, flag] { options->flags |= flag; }, entry.help);
  }
  auto word = std::make_shared<std::string>();
  CLI::Option* raw =
      list->add_option("--flags", *word, "The flag word as a number, such as 0xA0000002")
          ->type_name("WORD");
  list->callback([=, &result] {
    options->hasPatterns = patterns->count() != 0;
    if (recurse->count() != 0) options->flags |= FL_RECURSE | Number("--recurse", *depth, kDeepest);
    if (raw->count() != 0) options->flags |= Number("--flags", *word, UINT32_MAX);
    result = List(*options);
  });
}
