#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "exports/tavrix32.h"
#include "platform/win32.h"
#include "quern/cerr.h"
#include "tools/tavrix/commands.h"

namespace {

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

// Prints the library's message of a code and the system's, where there are any.
int Error(uint32_t code) {
  bool known = false;
  for (const quern::MessageRow* row = quern::MessageTable; row->code != 0; ++row) {
    if (row->code != code) continue;
    printf("message: %s\n", row->text);
    known = true;
  }
  char* text = nullptr;
  DWORD length = FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM,
                                nullptr, code, 0, reinterpret_cast<char*>(&text), 0, nullptr);
  if (length != 0) {
    while (length != 0 && strchr("\r\n ", text[length - 1])) --length;
    printf("system: %.*s\n", static_cast<int>(length), text);
    LocalFree(text);
    known = true;
  }
  if (!known) fprintf(stderr, "tavrix: no text for code %u\n", code);
  return known ? 0 : 1;
}

}  // namespace

int Run(std::string commandLine) {
  if (XProcStart(commandLine.data()) == 0) return 0;
  fprintf(stderr, "tavrix: cannot start '%s'\n", commandLine.c_str());
  PrintTrail();
  return 1;
}

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

  auto code = std::make_shared<std::string>();
  CLI::App* error = app.add_subcommand("error", "Show the texts of an error code.");
  error->add_option("CODE", *code, "A message code of the library or an error code of the system")
      ->required();
  error->callback([=, &result] { result = Error(Number("CODE", *code, UINT32_MAX)); });
}
