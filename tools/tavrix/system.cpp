#include <cstdio>
#include <memory>
#include <string>

#include "exports/tavrix32.h"
#include "tools/tavrix/commands.h"

namespace {

int Run(std::string commandLine) {
  if (XProcStart(commandLine.data()) == 0) return 0;
  fprintf(stderr, "tavrix: cannot start '%s'\n", commandLine.c_str());
  PrintTrail();
  return 1;
}

int Open() {
  char file[260] = "";
  OPENFILENAMEA dialog = {};
  dialog.lpstrFilter = "All files\0*.*\0";
  dialog.lpstrFile = file;
  dialog.nMaxFile = sizeof file;
  dialog.lpstrTitle = "Open a file";
  dialog.Flags = OFN_FILEMUSTEXIST | OFN_PATHMUSTEXIST;
  if (!XDlgFileOpen(&dialog)) {
    fputs("tavrix: no file was chosen\n", stderr);
    PrintTrail();
    return 1;
  }
  puts(file);
  return 0;
}

}  // namespace

bool PrintTrail() {
  char trail[256] = "";
  XErrorInfo(trail);
  if (!*trail) return false;
  fprintf(stderr, "tavrix: error %s\n", trail);
  return true;
}

void AddSystemCommands(CLI::App& app, int& result) {
  auto commandLine = std::make_shared<std::string>();
  CLI::App* run = app.add_subcommand("run", "Start a program and wait for its end.");
  run->add_option("COMMANDLINE", *commandLine, "The program and its arguments, as one text")
      ->required();
  run->callback([=, &result] { result = Run(*commandLine); });

  CLI::App* open =
      app.add_subcommand("open", "Ask for a file with the system's dialog; print its name.");
  open->callback([&result] { result = Open(); });
}
