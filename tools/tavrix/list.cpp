#include <cstdio>
#include <memory>
#include <string>

#include "exports/tavrix32.h"
#include "tools/tavrix/commands.h"

namespace {

struct ListOptions {
  std::string roots;
  std::string patterns;
  bool hasPatterns = false;
  uint32_t depth = 0;
  bool recurse = false;
  uint32_t flags = 0;
};

int List(const ListOptions& options) {
  uint32_t flags = options.flags | (options.recurse ? FL_RECURSE | options.depth : 0);
  const char* patterns = options.hasPatterns ? options.patterns.c_str() : nullptr;
  char name[262];
  uint32_t call = flags;
  while (XFileList(name, options.roots.c_str(), patterns, call)) {
    puts(name);
    if (flags & FL_FIRST) break;
    call = flags & ~FL_RESTART;  // again on every call, it would go round the list for ever
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
  CLI::Option* recurse = list->add_option("--recurse", options->depth,
                                          "Enter subdirectories, DEPTH levels (default 32)")
                             ->expected(0, 1)
                             ->type_name("[DEPTH]")
                             ->check(CLI::Range(uint32_t{0}, uint32_t{0x7FFFFF}));
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
  auto raw = std::make_shared<std::string>();
  list->add_option("--flags", *raw, "The flag word as a number, such as 0xA0000002")
      ->type_name("WORD");
  list->callback([=, &result] {
    options->hasPatterns = patterns->count() != 0;
    options->recurse = recurse->count() != 0;
    if (!raw->empty()) {
      size_t used = 0;
      unsigned long long word = 0;
      try {
        word = std::stoull(*raw, &used, 0);
      } catch (const std::exception&) {
        used = 0;
      }
      if (used != raw->size() || raw->front() == '-' || word > UINT32_MAX)
        throw CLI::ValidationError("--flags", "'" + *raw + "' is no number of 32 bits");
      options->flags |= static_cast<uint32_t>(word);
    }
    result = List(*options);
  });
}
