// The trial of one topic over any bytes.
#include HEADER

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return tavrix_test::FuzzTrial(data, size, tavrix_test::TRIAL);
}
