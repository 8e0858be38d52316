// Every failure that the library raises in a case must stand on the page of error codes, with its
// module, line and code. Part of every test program that wraps the failure sites.
#ifndef _WIN32

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <tuple>

namespace {

using Failure = std::tuple<const char*, int32_t, uint32_t>;  // module, line, code

// Cases let allocations fail while they raise: no memory is asked for.
Failure failures[256], *end = failures;

void Note(const char* module, int32_t line, uint32_t code) {
  const Failure failure(module, line, code);
  if (std::find(failures, end, failure) == end && end < std::end(failures)) *end++ = failure;
}

// Runs when a process ends in order, a child's, too; those of fatal failures among them.
void Check() {
  // The code in brackets is the whole one, where the page shows it as the trail does.
  static const std::regex row(R"(\| (\d+) \| (\d+)(?: \(`(0x\w+)`\))?.*)");
  std::set<std::string> rows;
  std::ifstream page(TAVRIX_SOURCES "/docs/error-codes.md");
  std::string module;
  std::smatch found;
  for (std::string line; std::getline(page, line) && line != "## Messages";) {
    if (line.starts_with("## ")) rows.insert(module = line.substr(3, line.find(':') - 3));
    if (!std::regex_match(line, found, row)) continue;
    const auto code = found[3].matched ? std::stoul(found[3], nullptr, 16) : std::stoul(found[2]);
    rows.insert(module + " " + std::to_string(std::stoi(found[1])) + " " + std::to_string(code));
  }
  for (const Failure* failure = failures; failure < end; ++failure) {
    const auto& [of, line, code] = *failure;
    const std::string raised = std::string(of) + " " + std::to_string(line) + " ";
    if (!rows.contains(of) || rows.contains(raised + std::to_string(code))) continue;
    fprintf(stderr, "%s%u: raised, and not on the page of error codes\n", raised.c_str(), code);
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
