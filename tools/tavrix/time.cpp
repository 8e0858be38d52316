#include <cstdio>
#include <memory>
#include <string>

#include "quern/ctime.h"
#include "tools/tavrix/commands.h"

namespace {

int Time(const std::string& commandLine) {
  quern::TimeWatch(0, quern::WATCH_RESTART);
  int code = Run(commandLine);
  const char* elapsed = quern::TimeWatch(0, quern::WATCH_STOP);
  if (code == 0) puts(elapsed);
  return code;
}

}  // namespace

void AddTimeCommands(CLI::App& app, int& result) {
  auto flags = std::make_shared<std::string>("10");
  CLI::App* stamp = app.add_subcommand("stamp", "Print the date and time.");
  stamp->add_option(
      "FLAGS", *flags,
      "Sum of 1 seconds of the day, 2 date, 4 time, 8 time with milliseconds; 10 if left out");
  stamp->callback([=, &result] {
    puts(quern::TimeStamp(nullptr, Number("FLAGS", *flags, 15)));
    result = 0;
  });

  auto commandLine = std::make_shared<std::string>();
  CLI::App* time =
      app.add_subcommand("time", "Start a program, wait for its end and print how long it took.");
  time->add_option("COMMANDLINE", *commandLine, "The program and its arguments, as one text")
      ->required();
  time->callback([=, &result] { result = Time(*commandLine); });
}
