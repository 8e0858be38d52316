// Environment variables: spelling, the path list, buffers.
#include "tests/support/test.h"

namespace {

// The value, or "<code>" with the last error when there is none.
std::string Get(const char* name) {
  char buffer[64];
  SetLastError(0);
  DWORD length = GetEnvironmentVariableA(name, buffer, sizeof buffer);
  if (length == 0 && GetLastError() != 0) return "<" + std::to_string(GetLastError()) + ">";
  return std::string(buffer, length);
}

DWORD SetError(const char* name, const char* value) {
  return SetEnvironmentVariableA(name, value) ? 0 : GetLastError();
}

TEST(PosixEnvironment, PrefersTheExactSpelling) {
  setenv("Tavrix_Test", "mixed", 1);
  EXPECT_EQ(Get("TAVRIX_TEST"), "mixed");
  setenv("TAVRIX_TEST", "upper", 1);
  EXPECT_EQ(Get("TAVRIX_TEST"), "upper");
  setenv("TAVRIX", "TEST=", 1);
  setenv("Q", "one letter", 1);
  EXPECT_EQ(Get("Q"), "one letter");
  for (const char* name : {"TAVRIX_TES", "TAVRIX_TESTS", "", "TAVRIX=TEST", "Tavrix=Test"}) {
    EXPECT_EQ(Get(name), "<203>") << name;
  }
  EXPECT_EQ(Get(nullptr), "<203>");
  EXPECT_EQ(SetError("TAVRIX_TEST", ""), 0u);
  EXPECT_EQ(Get("TAVRIX_TEST") + Get("Tavrix_Test"), "mixed") << "empty is not missing";
  EXPECT_EQ(SetError("TAVRIX_TEST", nullptr), 0u);
  EXPECT_EQ(SetError("tavrix_test", "other spelling"), 0u);
  EXPECT_STREQ(getenv("Tavrix_Test"), "other spelling");
  EXPECT_EQ(getenv("tavrix_test"), nullptr);
  EXPECT_EQ(SetError("tavrix_test", nullptr), 0u);
  EXPECT_EQ(SetError("tavrix_test", nullptr), ERROR_ENVVAR_NOT_FOUND);
  EXPECT_EQ(SetError("a=b", "x"), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(SetError(nullptr, "x"), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(SetError("", "x"), ERROR_INVALID_PARAMETER);
}

TEST(PosixEnvironment, TranslatesThePathAndObeysTheBuffer) {
  std::string before = getenv("PATH");
  setenv("PATH", "/a::/b", 1);
  setenv("TAVRIX_LIST", "/a:/b", 1);
  EXPECT_EQ(Get("Path"), "/a;;/b");
  setenv("PATHS", "/a:/b", 1);
  EXPECT_EQ(Get("TAVRIX_LIST") + Get("PATHS"), "/a:/b/a:/b");
  EXPECT_EQ(SetError("path", "/x;/y"), 0u);
  EXPECT_STREQ(getenv("PATH"), "/x:/y");
  char buffer[8] = "x";
  for (DWORD size : {0, 100}) EXPECT_EQ(GetEnvironmentVariableA("PATH", nullptr, size), 6u);
  EXPECT_EQ(GetEnvironmentVariableA("PATH", buffer, 5), 6u);
  EXPECT_STREQ(buffer, "x");
  EXPECT_EQ(GetEnvironmentVariableA("PATH", buffer, 6), 5u);
  EXPECT_STREQ(buffer, "/x;/y");
  clearenv();
  EXPECT_EQ(Get("PATH"), "<203>");
  setenv("PATH", before.c_str(), 1);
}

}  // namespace
