// The scanner: tables and texts of all kinds against the model of its rules.
#include "tests/support/scan_trial.h"
#include "tests/support/test.h"

TEST(ScanModel, TablesAreScannedAsTheModelDoes) {
  EXPECT_EQ(tavrix_test::RunTrials(1, 60'000, tavrix_test::ScanTrial), "");
}
