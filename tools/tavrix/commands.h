// The program's commands, by topic. Each function adds its subcommands; a command that ran leaves
// the program's exit code in `result`.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

void AddConsoleCommands(CLI::App& app, int& result);  // colors, progress, expand
void AddFileCommands(CLI::App& app, int& result);     // edit, append, companion, walk
void AddListCommand(CLI::App& app, int& result);      // list
void AddMemoryCommands(CLI::App& app, int& result);   // dump, unhex, header
void AddScanCommand(CLI::App& app, int& result);      // scan
void AddStringCommands(CLI::App& app, int& result);   // compare, span, cspan, length
void AddSystemCommands(CLI::App& app, int& result);   // run, open, error
void AddTimeCommands(CLI::App& app, int& result);     // stamp, time

// Prints the code trail of the newest failure, if there is one, on standard error; true if there
// was.
bool PrintTrail();

// Throws when something that was printed so far could not be written.
void RequireWritten();

// Starts a program and waits for its end; says so when it cannot be started. The exit code.
int Run(std::string commandLine);

// The number in an argument, as C writes it: 10, 0x10, 010. A wrong one is a usage error.
uint32_t Number(const char* option, const std::string& text, uint32_t most);
uint64_t LongNumber(const char* option, const std::string& text, uint64_t most = UINT64_MAX);
