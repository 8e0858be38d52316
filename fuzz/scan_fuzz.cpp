// Tables, texts and calls of the scanner out of any bytes, held against the model of its rules.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "tests/support/scan_trial.h"

namespace {

struct Bytes {
  const uint8_t *at, *end;

  uint32_t Below(uint32_t n) { return at < end ? *at++ % n : 0; }
  bool More() const { return at < end; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bytes bytes{data, data + size};
  const std::string difference = tavrix_test::TryScan(bytes);
  if (difference.empty()) return 0;
  std::fprintf(stderr, "%s\n", difference.c_str());
  std::abort();
}
