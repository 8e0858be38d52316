// tavrix: the exported functions, and some of the foundation's, from the command line.
//
// Exit codes: 0, or what a command says of its own result; 1 after a failing call, with the code
// trail on standard error, and when the output cannot be written; 2 for a wrong option, with one
// line on standard error. A pipe without a reader ends the program by SIGPIPE, as it does other
// programs: a long list has to end with its reader.

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>

#include "tools/tavrix/commands.h"

namespace {

int WrongUsage(const char* message) {
  std::string line = message;
  line = line.substr(0, line.find('\n'));
  fprintf(stderr, "tavrix: %s (see tavrix --help)\n", line.c_str());
  return 2;
}

}  // namespace

uint64_t LongNumber(const char* option, const std::string& text, uint64_t most) {
  size_t used = 0;
  uint64_t number = 0;
  try {
    number = std::stoull(text, &used, 0);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used == 0 || used != text.size() || text.front() == '-' || number > most)
    throw CLI::ValidationError(option,
                               "'" + text + "' is not a number from 0 to " + std::to_string(most));
  return number;
}

uint32_t Number(const char* option, const std::string& text, uint32_t most) {
  return static_cast<uint32_t>(LongNumber(option, text, most));
}

void RequireWritten() {
  if (fflush(stdout) != 0 || ferror(stdout)) throw std::runtime_error("the output is not written");
}

int main(int argc, char** argv) {
  try {
    CLI::App app("Services of the Tavrix32 library.", "tavrix");
    app.set_version_flag("--version", "tavrix " TAVRIX_VERSION);
    app.require_subcommand(1);
    int result = 0;
    AddConsoleCommands(app, result);
    AddFileCommands(app, result);
    AddListCommand(app, result);
    AddMemoryCommands(app, result);
    AddScanCommand(app, result);
    AddStringCommands(app, result);
    AddSystemCommands(app, result);
    AddTimeCommands(app, result);
    try {
      app.parse(argc, argv);
    } catch (const CLI::Success& wanted) {  // --help, --version
      app.exit(wanted);
    } catch (const CLI::ParseError& wrong) {
      return WrongUsage(wrong.what());
    }
    RequireWritten();
    return result;
  } catch (const std::exception& failure) {
    fprintf(stderr, "tavrix: %s\n", failure.what());
    return 1;
  }
}
