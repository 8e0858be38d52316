// The program's commands, by topic. Each function adds its subcommands; a command that ran leaves
// the program's exit code in `result`.
#pragma once

#include <CLI/CLI.hpp>

void AddListCommand(CLI::App& app, int& result);     // list
void AddStringCommands(CLI::App& app, int& result);  // compare, span, cspan, length
void AddSystemCommands(CLI::App& app, int& result);  // run, open

// Prints the code trail of the newest failure, if there is one, on standard error; true if there
// was.
bool PrintTrail();
