// Every failure that the library raises in a case must stand on the page of error codes, with its
// module, line and code. Part of every test program that wraps the failure sites.
#ifndef _WIN32

#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <span>
#include <string>

namespace {

struct Failure {
  const char* module;
  int32_t line;
  uint32_t code;
};

// Cases let allocations fail while they raise: no memory is asked for.
constexpr int kMost = 256;
Failure failures[kMost];
int count;

void Note(const char* module, int32_t line, uint32_t code) {
  for (int i = 0; i < count; ++i) {
    const Failure& known = failures[i];
    if (known.module == module && known.line == line && known.code == code) return;
  }
  if (count < kMost) failures[count++] = {module, line, code};
}

// "module line code" of every row. The code is the whole one, which the page gives in brackets when
// it has more than the trail shows.
std::set<std::string> Page(std::set<std::string>* modules) {
  std::set<std::string> rows;
  std::ifstream page(TAVRIX_SOURCES "/docs/error-codes.md");
  std::string module;
  for (std::string line; std::getline(page, line);) {
    if (line == "## Messages") break;
    if (line.starts_with("## ")) {
      module = line.substr(3, line.find(':') - 3);
      modules->insert(module);
    } else if (line.starts_with("| ") && isdigit(line[2])) {
      std::string code = line.substr(line.find('|', 2) + 2);
      size_t whole = code.find("(`0x");
      uint32_t number = static_cast<uint32_t>(whole < code.find('|')
                                                  ? std::stoul(code.substr(whole + 2), nullptr, 16)
                                                  : std::stoul(code));
      rows.insert(module + " " + std::to_string(std::stoi(line.substr(2))) + " " +
                  std::to_string(number));
    }
  }
  return rows;
}

// Runs when a process ends in order, a child's, too; those of fatal failures among them.
void Check() {
  std::set<std::string> modules;
  const std::set<std::string> rows = Page(&modules);
  for (const Failure& failure : std::span(failures, static_cast<size_t>(count))) {
    if (!modules.contains(failure.module)) continue;
    std::string row = std::string(failure.module) + " " + std::to_string(failure.line) + " " +
                      std::to_string(failure.code);
    if (rows.contains(row)) continue;
    fprintf(stderr, "%s: raised, and not on the page of error codes\n", row.c_str());
    _exit(98);
  }
}

const int checked = atexit(Check);

}  // namespace

extern "C" {

int32_t __real__ZN5quern8ErrRaiseEPKcij(const char* module, int32_t line, uint32_t code);
int32_t __real__ZN5quern12ErrRaiseTextEPKcijS1_(const char* module, int32_t line, uint32_t code,
                                                const char* text);

int32_t __wrap__ZN5quern8ErrRaiseEPKcij(const char* module, int32_t line, uint32_t code) {
  Note(module, line, code);
  return __real__ZN5quern8ErrRaiseEPKcij(module, line, code);
}

int32_t __wrap__ZN5quern12ErrRaiseTextEPKcijS1_(const char* module, int32_t line, uint32_t code,
                                                const char* text) {
  Note(module, line, code);
  return __real__ZN5quern12ErrRaiseTextEPKcijS1_(module, line, code, text);
}

// The longest message has four arguments; a word that is not there is read and not used.
int32_t __real__ZN5quern12ErrRaiseTextEPKcijjz(const char* module, int32_t line, uint32_t code,
                                               uint32_t message, ...);

__attribute__((no_sanitize_address)) int32_t __wrap__ZN5quern12ErrRaiseTextEPKcijjz(
    const char* module, int32_t line, uint32_t code, uint32_t message, ...) {
  Note(module, line, code);
  uintptr_t word[4];
  va_list arguments;
  va_start(arguments, message);
  for (uintptr_t& argument : word) argument = va_arg(arguments, uintptr_t);
  va_end(arguments);
  return __real__ZN5quern12ErrRaiseTextEPKcijjz(module, line, code, message, word[0], word[1],
                                                word[2], word[3]);
}
}

#endif
