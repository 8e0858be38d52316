// Expanding a text of 4 KB with 100 references in an environment of 40 variables: CslExpand beside
// wordexp and a loop of std::string and getenv.

#include <benchmark/benchmark.h>
#include <wordexp.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "quern/ccsl/expand.h"

namespace {

constexpr size_t kReferences = 100;
constexpr char kBetween[] = "/what/stands/between/references";

struct Variable {
  const char* name;
  const char* value;
};

// What a session usually has. The references are to the first kReferred, in an order of their own.
const Variable kVariables[] = {
    {"HOME", "/home/someone"},
    {"USER", "someone"},
    {"TEMP", "/tmp"},
    {"LANG", "en_US.UTF-8"},
    {"SHELL", "/bin/bash"},
    {"EDITOR", "vim"},
    {"PROJECT_ROOT", "/home/someone/projects/tavrix"},
    {"BUILD_TYPE", "RelWithDebInfo"},
    {"XDG_RUNTIME_DIR", "/run/user/1000"},
    {"COMPUTERNAME", "workstation-17"},
    {"INCLUDE", "/usr/local/include:/usr/include:/usr/include/x86_64-linux-gnu"},
    {"VERSION", "1.42.7"},
    {"PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"},
    {"PWD", "/home/someone/projects"},
    {"OLDPWD", "/home/someone"},
    {"TERM", "xterm-256color"},
    {"DISPLAY", ":0"},
    {"LOGNAME", "someone"},
    {"MAIL", "/var/mail/someone"},
    {"SHLVL", "1"},
    {"HOSTNAME", "workstation-17"},
    {"COLORTERM", "truecolor"},
    {"LS_COLORS", "rs=0:di=01;34:ln=01;36:mh=00:pi=40;33:so=01;35:do=01;35:bd=40;33;01"},
    {"LESSOPEN", "| /usr/bin/lesspipe %s"},
    {"LESSCLOSE", "/usr/bin/lesspipe %s %s"},
    {"SSH_AUTH_SOCK", "/run/user/1000/keyring/ssh"},
    {"SSH_AGENT_PID", "1234"},
    {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/run/user/1000/bus"},
    {"XDG_SESSION_ID", "2"},
    {"XDG_SESSION_TYPE", "x11"},
    {"XDG_SESSION_CLASS", "user"},
    {"XDG_DATA_DIRS", "/usr/local/share:/usr/share"},
    {"XDG_CONFIG_DIRS", "/etc/xdg"},
    {"XDG_CURRENT_DESKTOP", "GNOME"},
    {"DESKTOP_SESSION", "gnome"},
    {"GDMSESSION", "gnome"},
    {"WINDOWPATH", "2"},
    {"PAGER", "less"},
    {"TZ", "Europe/Berlin"},
    {"MANPATH", "/usr/local/man:/usr/share/man"},
};
constexpr size_t kReferred = 12;

// The text with a reference as `open` NAME `close`.
std::string Text(const char* open, const char* close) {
  std::string text;
  for (size_t i = 0; i < kReferences; ++i)
    text += std::string(open) + kVariables[i * 7 % kReferred].name + close + kBetween;
  return text;
}

// The environment lists the variables in the order above, or the other way round.
void SetEnvironment(bool reversed) {
  constexpr size_t kCount = sizeof kVariables / sizeof *kVariables;
  clearenv();
  for (size_t i = 0; i < kCount; ++i) {
    const Variable& variable = kVariables[reversed ? kCount - 1 - i : i];
    setenv(variable.name, variable.value, 1);
  }
}

void GetenvInto(std::string& expanded, const char* text) {
  expanded.clear();
  const char *at = text, *end = text + strlen(text);
  while (const char* open = strchr(at, '%')) {
    const char* close = strchr(open + 1, '%');
    if (!close) break;
    expanded.append(at, open);
    const char* value = getenv(std::string(open + 1, close).c_str());
    value ? expanded.append(value) : expanded.append(open, close + 1);
    at = close + 1;
  }
  expanded.append(at, end);
}

std::string Getenv(const char* text) {
  std::string expanded;
  GetenvInto(expanded, text);
  return expanded;
}

// Each must give what the values in the places of the references give.
template <class Expand>
void Run(benchmark::State& state, const std::string& text, Expand expand) {
  SetEnvironment(state.range(0) != 0);
  std::string wanted;
  for (size_t i = 0; i < kReferences; ++i)
    wanted += kVariables[i * 7 % kReferred].value + std::string(kBetween);
  if (expand(text.c_str()) != wanted) state.SkipWithError("another text");
  for (auto _ : state) benchmark::DoNotOptimize(expand(text.c_str()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_CslExpand(benchmark::State& state) { Run(state, Text("%", "%"), quern::CslExpand); }

// In quotes: one word, which is not split.
void BM_Wordexp(benchmark::State& state) {
  wordexp_t words = {};
  Run(state, '"' + Text("$", "") + '"', [&](const char* text) {
    wordfree(&words);
    constexpr int kFlags = WRDE_NOCMD | WRDE_UNDEF;
    return wordexp(text, &words, kFlags) == 0 && words.we_wordc == 1 ? words.we_wordv[0] : "";
  });
  wordfree(&words);
}

void BM_Getenv(benchmark::State& state) { Run(state, Text("%", "%"), Getenv); }

// Into a string that has its memory already, as CslExpand has.
void BM_GetenvReused(benchmark::State& state) {
  std::string expanded;
  Run(state, Text("%", "%"), [&](const char* text) {
    GetenvInto(expanded, text);
    return expanded.c_str();
  });
}

BENCHMARK(BM_CslExpand)->ArgName("reversed")->Arg(0)->Arg(1);
BENCHMARK(BM_Wordexp)->ArgName("reversed")->Arg(0)->Arg(1);
BENCHMARK(BM_Getenv)->ArgName("reversed")->Arg(0)->Arg(1);
BENCHMARK(BM_GetenvReused)->ArgName("reversed")->Arg(0)->Arg(1);

}  // namespace

BENCHMARK_MAIN();
