#include <cstdio>
#include <memory>
#include <string>

#include "exports/tavrix32.h"
#include "tools/tavrix/commands.h"

namespace {

struct Arguments {
  std::string text;
  std::string other;
  int32_t number = 1;
};

int Print(int32_t value) {
  printf("%d\n", value);
  return 0;
}

void AddSpan(CLI::App& app, int& result, const char* name, const char* help,
             int32_t(TAVRIX_CALL* span)(const char*, const char*, int32_t)) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand(name, help);
  command->add_option("TEXT", arguments->text, "The text")->required();
  command->add_option("SET", arguments->other, "The bytes of the set")->required();
  command->add_option("START", arguments->number, "1-based position to begin at");
  command->callback([=, &result] {
    if (arguments->number < 1 ||
        static_cast<size_t>(arguments->number) > arguments->text.size() + 1)
      throw CLI::ValidationError("START", "must lie between 1 and the text's length plus 1");
    result = Print(span(arguments->text.c_str(), arguments->other.c_str(), arguments->number));
  });
}

}  // namespace

void AddStringCommands(CLI::App& app, int& result) {
  auto pair = std::make_shared<Arguments>();
  CLI::App* compare =
      app.add_subcommand("compare", "Compare two texts: 0 before, 1 equal, 2 after.");
  compare->add_option("A", pair->text, "A text")->required();
  compare->add_option("B", pair->other, "Another text")->required();
  compare->add_option("COUNT", pair->number, "Bytes to compare at most")
      ->required()
      ->check(CLI::NonNegativeNumber);
  compare->callback([=, &result] {
    result = Print(XStrCmp(pair->text.c_str(), pair->other.c_str(), pair->number));
  });

  AddSpan(app, result, "span", "Position of the first byte not in a set, counted from START.",
          XStrSpn);
  AddSpan(app, result, "cspan", "Position of the first byte in a set, counted from START.",
          XStrCSpn);

  auto single = std::make_shared<Arguments>();
  CLI::App* length = app.add_subcommand("length", "Length of a text in bytes.");
  length->add_option("TEXT", single->text, "The text")->required();
  length->callback([=, &result] { result = Print(XStrLen(single->text.c_str())); });
}
