// Searches beside what a C program would call, and inputs made to slow a search down beside usual
// text. Bytes per second of text passed over; every run finds all hits, the next search beginning
// behind one.
#include <benchmark/benchmark.h>

#include <cctype>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "quern/cmem/search.h"

namespace {

using quern::MEM_BACKWARD;
using quern::MEM_NOCASE;

constexpr size_t kTextSize = 8 << 20;

// Lines like those of a program, of words that are met as often as in one.
const std::string& Text() {
  static const std::string text = [] {
    static const char* kWords[] = {
        "int ",      "const ",   "return ", "the ",     "size_t ", "#define ", "value", "(",
        ")",         ");\n",     " = ",     "->",       "struct",  " {\n",     "}\n",   "pointer",
        "unsigned ", "/* ",      " */\n",   "__attr__", "if (",    "length",   ", ",    "NULL",
        "0x1F",      "Printer_", "extern ", "char *",   "of ",     "to "};
    std::mt19937 random(7);
    std::string made;
    while (made.size() < kTextSize) made += kWords[random() % (sizeof kWords / sizeof *kWords)];
    made.resize(kTextSize);
    return made;
  }();
  return text;
}

// Counts hits of find(at, end), which returns the next one or null.
template <class Find>
void Count(benchmark::State& state, const std::string& text, size_t step, Find find) {
  size_t hits = 0;
  for (auto _ : state) {
    const char *at = text.data(), *end = at + text.size();
    hits = 0;
    while (at < end && (at = find(at, end)) != nullptr && at < end) ++hits, at += step;
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
  state.counters["hits"] = static_cast<double>(hits);
}

uint32_t Left(const char* at, const char* end) { return static_cast<uint32_t>(end - at); }

void Find(benchmark::State& state, const std::string& text, const std::string& pattern,
          uint32_t flags) {
  Count(state, text, pattern.size(), [&](const char* at, const char* end) {
    return quern::MemFind(at, Left(at, end), pattern.data(), static_cast<uint32_t>(pattern.size()),
                          flags);
  });
}

struct Named {
  const char* name;
  const char* bytes;
};

constexpr Named kPatterns[] = {
    {"byte", "\n"},
    {"absent_byte", "\x01"},
    {"short_common", "int"},
    {"short_rare", "tesni"},
    {"absent", "returnNowhere"},
    {"long", "the long sentence that is not often met in the headers of a system"}};
constexpr Named kSets[] = {{"absent_4", "\x01\x02\x03\x04"},
                           {"rare_3", "@`x"},
                           {"common_5", "{}();"},
                           {"absent_12", "\x01\x02\x03\x04\x05\x06\x07@`$~|"}};

// Text and a pattern that is nearly in it, everywhere.
struct Trap {
  std::string name, text, pattern;
};

std::string Repeat(const std::string& unit, size_t size) {
  std::string text;
  while (text.size() < size) text += unit;
  text.resize(size);
  return text;
}

std::vector<Trap> Traps() {
  const std::string a(kTextSize, 'a');
  const auto run = [](size_t n) { return std::string(n, 'a'); };
  std::mt19937 random(11);
  std::string coin(kTextSize, 'a'), fibonacci = "b", next = "a", thue(kTextSize, 'a');
  for (char& c : coin) c += random() % 2;
  while (fibonacci.size() < kTextSize) fibonacci = next + fibonacci, std::swap(fibonacci, next);
  fibonacci.resize(kTextSize);
  for (size_t i = 0; i < thue.size(); ++i) thue[i] += __builtin_parityll(i);
  std::vector<Trap> traps;
  for (size_t n : {8, 40, 300, 5000}) {
    const std::string size = "/" + std::to_string(n);
    traps.push_back({"run_then_b" + size, a, run(n) + "b"});
    traps.push_back({"b_then_run" + size, a, "b" + run(n)});
    traps.push_back({"b_within_run" + size, a, run(n) + "b" + run(n)});
    traps.push_back({"longer_run" + size, Repeat(run(n) + "b", kTextSize), run(n + 1)});
    traps.push_back({"much_longer_run" + size, Repeat(run(n) + "b", kTextSize), run(10 * n)});
    traps.push_back({"runs_then_d" + size, Repeat(run(n / 4) + "c", kTextSize),
                     Repeat(run(n / 4) + "c", n * 2) + "d"});
    traps.push_back({"d_then_runs" + size, Repeat(run(n / 4) + "c", kTextSize),
                     "d" + Repeat(run(n / 4) + "c", n * 2)});
    traps.push_back({"ab_then_aa" + size, Repeat("ab", kTextSize), Repeat("ab", n) + "aa"});
    traps.push_back(
        {"aa_within_ab" + size, Repeat("ab", kTextSize), Repeat("ab", n) + "a" + Repeat("ab", n)});
    traps.push_back({"coins" + size, coin, coin.substr(kTextSize / 2, n) + "c"});
    traps.push_back({"coins_only" + size, coin, coin.substr(1, n) + Repeat("ab", 40)});
    std::string flawed = fibonacci.substr(0, n);
    flawed[n / 2] ^= 3;
    traps.push_back({"fibonacci_flawed" + size, fibonacci, flawed + "a"});
    traps.push_back({"fibonacci_end" + size, fibonacci, fibonacci.substr(0, n) + "bb"});
    traps.push_back({"thue_morse" + size, thue, thue.substr(0, n) + thue.substr(0, n / 2) + "aaa"});
    traps.push_back({"mixed_runs" + size, Repeat(run(n) + "b" + run(n / 2) + "b", kTextSize),
                     run(n) + "b" + run(n) + "b"});
  }
  // The same text, and a pattern that grows out of it after runs of many lengths.
  std::string staircase;
  for (size_t n = 1; staircase.size() < kTextSize; n = n % 120 + 1) staircase += run(n) + "b";
  traps.push_back({"staircase", staircase, run(60) + "b" + run(60) + "b"});
  traps.push_back({"staircase_run", staircase, run(121)});
  return traps;
}

void RegisterAll() {
  static const std::vector<Trap> traps = Traps();
  for (const Named& p : kPatterns) {
    const std::string pattern = p.bytes, title = std::string("find/") + p.name;
    const auto add = [&](const char* who, auto body) {
      benchmark::RegisterBenchmark((title + "/" + who).c_str(), body);
    };
    add("MemFind", [=](benchmark::State& s) { Find(s, Text(), pattern, 0); });
    add("MemFind_nocase", [=](benchmark::State& s) { Find(s, Text(), pattern, MEM_NOCASE); });
    add("memmem", [=](benchmark::State& s) {
      Count(s, Text(), pattern.size(), [&](const char* at, const char* end) {
        return static_cast<const char*>(
            memmem(at, static_cast<size_t>(end - at), pattern.data(), pattern.size()));
      });
    });
    add("strstr", [=](benchmark::State& s) {
      Count(s, Text(), pattern.size(),
            [&](const char* at, const char*) { return std::strstr(at, pattern.c_str()); });
    });
    add("strcasestr", [=](benchmark::State& s) {
      Count(s, Text(), pattern.size(),
            [&](const char* at, const char*) { return strcasestr(at, pattern.c_str()); });
    });
    add("MemFind_backward_once", [=](benchmark::State& s) {
      for (auto _ : s)
        benchmark::DoNotOptimize(quern::MemFind(Text().data(), kTextSize - 1, pattern.data(),
                                                static_cast<uint32_t>(pattern.size()),
                                                MEM_BACKWARD));
    });
  }
  for (const Named& p : kSets) {
    const std::string set = p.bytes, title = std::string("any/") + p.name;
    for (uint32_t flags : {0u, MEM_NOCASE})
      benchmark::RegisterBenchmark((title + (flags ? "/MemFindAny_nocase" : "/MemFindAny")).c_str(),
                                   [=](benchmark::State& s) {
                                     Count(s, Text(), 1, [&](const char* at, const char* end) {
                                       return quern::MemFindAny(
                                           at, static_cast<int32_t>(Left(at, end)), set.data(),
                                           static_cast<uint32_t>(set.size()), flags);
                                     });
                                   });
    benchmark::RegisterBenchmark((title + "/strcspn").c_str(), [=](benchmark::State& s) {
      Count(s, Text(), 1,
            [&](const char* at, const char*) { return at + std::strcspn(at, set.c_str()); });
    });
  }
  for (const Trap& trap : traps) {
    for (uint32_t flags : {0u, MEM_NOCASE})
      benchmark::RegisterBenchmark(
          ("trap/" + trap.name + (flags ? "/MemFind_nocase" : "/MemFind")).c_str(),
          [=, &trap](benchmark::State& s) { Find(s, trap.text, trap.pattern, flags); });
    benchmark::RegisterBenchmark(
        ("trap/" + trap.name + "/MemFind_backward").c_str(), [&trap](benchmark::State& s) {
          for (auto _ : s)
            benchmark::DoNotOptimize(
                quern::MemFind(trap.text.data(), kTextSize - 1, trap.pattern.data(),
                               static_cast<uint32_t>(trap.pattern.size()), MEM_BACKWARD));
          s.SetBytesProcessed(static_cast<int64_t>(s.iterations() * kTextSize));
        });
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  RegisterAll();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
