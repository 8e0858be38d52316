// The scanner: tables and texts of all kinds against the model of its rules.

#include "tests/support/scan_trial.h"
#include "tests/support/test.h"

namespace {

using tavrix_test::TryScan;

struct Dice {
  std::mt19937 random;
  uint32_t calls;  // on average

  uint32_t Below(uint32_t n) { return static_cast<uint32_t>(random() % n); }
  bool More() { return Below(calls) != 0; }
};

// Few calls on each of many tables, and many on each of fewer.
TEST(ScanModel, ManyTablesAreScannedAsTheModelDoes) {
  Dice dice{std::mt19937(61), 6};
  for (int round = 0; round < 60000; ++round) ASSERT_EQ(TryScan(dice), "") << round;
}

TEST(ScanModel, LongSequencesOfCallsKeepStep) {
  Dice dice{std::mt19937(62), 40};
  for (int round = 0; round < 6000; ++round) ASSERT_EQ(TryScan(dice), "") << round;
}

}  // namespace
