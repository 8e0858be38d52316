// Random trials: one source of choices for tests and fuzz targets, and a log of the calls made.
//
// A trial is a function of a Choices. It returns what was different, or an empty text:
//
//   std::string Try(Choices& choices);
//   TEST(Chain, RandomCallsAgreeWithAModel) { EXPECT_EQ(RunTrials(1, 500, Try), ""); }
//
// A failure shows the seed, the log and the difference. TRIAL_SEED=<seed> runs that trial alone.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>

namespace tavrix_test {

class Choices {
 public:
  explicit Choices(uint32_t seed) : random_(seed) {}
  Choices(const uint8_t* bytes, size_t size) : at_(bytes), end_(bytes + size) {}

  // A number below n; 0 if n is 0 or the bytes have run out.
  uint32_t Below(uint32_t n) {
    if (n == 0) return 0;
    if (!at_) return static_cast<uint32_t>(random_()) % n;
    uint32_t value = 0;
    for (uint32_t most = n - 1; most != 0 && at_ < end_; most >>= 8) value = value << 8 | *at_++;
    return value % n;
  }

  // False if the bytes have run out; a seed never does.
  bool More() const { return !at_ || at_ < end_; }

  // Never true when the bytes have run out.
  bool OneIn(uint32_t n) { return n < 2 || Below(n) == n - 1; }

  template <class Value>
  Value One(std::initializer_list<Value> values) {
    return values.begin()[Below(static_cast<uint32_t>(values.size()))];
  }

  // At most `most` of these letters.
  std::string Text(std::string_view letters, uint32_t most) {
    std::string text(Below(most + 1), 0);
    for (char& c : text) c = letters[Below(static_cast<uint32_t>(letters.size()))];
    return text;
  }

  __attribute__((format(printf, 2, 3))) void Log(const char* format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    log_ += line;
  }
  const std::string& log() const { return log_; }

 private:
  std::mt19937 random_;
  const uint8_t *at_ = nullptr, *end_ = nullptr;
  std::string log_;
};

// Runs the trial with each seed from `first` to `last`. Returns the report of the first failure.
template <class Trial>
std::string RunTrials(uint32_t first, uint32_t last, Trial trial) {
  if (const char* only = getenv("TRIAL_SEED")) first = last = static_cast<uint32_t>(atoi(only));
  for (uint32_t seed = first; seed <= last; ++seed) {
    Choices choices(seed);
    const std::string difference = trial(choices);
    if (!difference.empty())
      return "TRIAL_SEED=" + std::to_string(seed) + "\n" + choices.log() + difference;
  }
  return "";
}

// Runs the trial with the bytes of a fuzz target; a difference ends the process.
template <class Trial>
int FuzzTrial(const uint8_t* bytes, size_t size, Trial trial) {
  Choices choices(bytes, size);
  const std::string difference = trial(choices);
  if (difference.empty()) return 0;
  fprintf(stderr, "%s%s\n", choices.log().c_str(), difference.c_str());
  abort();
}

}  // namespace tavrix_test
