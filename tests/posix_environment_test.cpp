// Environment variables: spelling, the path list, buffers.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "platform/win32.h"

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
  SetLastError(0);
  return SetEnvironmentVariableA(name, value) ? 0 : GetLastError();
}

TEST(PosixEnvironment, PrefersTheExactSpelling) {
  setenv("Tavrix_Test", "mixed", 1);
  EXPECT_EQ(Get("TAVRIX_TEST"), "mixed");
  setenv("TAVRIX_TEST", "upper", 1);
  EXPECT_EQ(Get("TAVRIX_TEST"), "upper");
  EXPECT_EQ(Get("Tavrix_Test"), "mixed");
  EXPECT_EQ(Get("TAVRIX_TES"), "<203>");
  EXPECT_EQ(Get("TAVRIX_TESTS"), "<203>");

  EXPECT_EQ(SetError("Tavrix_Test", "changed"), 0u);
  EXPECT_STREQ(getenv("Tavrix_Test"), "changed");
  EXPECT_STREQ(getenv("TAVRIX_TEST"), "upper");
  EXPECT_EQ(SetError("Tavrix_Test", nullptr), 0u);
  EXPECT_EQ(getenv("Tavrix_Test"), nullptr);
  EXPECT_EQ(SetError("tavrix_test", "other spelling"), 0u);
  EXPECT_STREQ(getenv("TAVRIX_TEST"), "other spelling");
  EXPECT_EQ(getenv("tavrix_test"), nullptr);
  EXPECT_EQ(SetError("tavrix_test", nullptr), 0u);
  EXPECT_EQ(SetError("tavrix_test", nullptr), ERROR_ENVVAR_NOT_FOUND);
}

TEST(PosixEnvironment, TellsEmptyFromMissing) {
  setenv("TAVRIX_EMPTY", "", 1);
  EXPECT_EQ(Get("TAVRIX_EMPTY"), "");
  EXPECT_EQ(Get("TAVRIX_MISSING"), "<203>");
  EXPECT_EQ(Get(""), "<203>");
  EXPECT_EQ(Get("TAVRIX=EMPTY"), "<203>");
  EXPECT_EQ(SetError("", "x"), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(SetError("a=b", "x"), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(SetError(nullptr, "x"), ERROR_INVALID_PARAMETER);
}

TEST(PosixEnvironment, TranslatesThePathInAnySpelling) {
  setenv("PATH", "/a:/b::/c", 1);
  setenv("TAVRIX_LIST", "/a:/b", 1);
  EXPECT_EQ(Get("PATH"), "/a;/b;;/c");
  EXPECT_EQ(Get("Path"), "/a;/b;;/c");
  EXPECT_EQ(Get("TAVRIX_LIST"), "/a:/b");
  EXPECT_EQ(SetError("path", "/x;/y"), 0u);
  EXPECT_STREQ(getenv("PATH"), "/x:/y");
  EXPECT_EQ(getenv("path"), nullptr);
}

TEST(PosixEnvironment, ObeysTheBuffer) {
  setenv("TAVRIX_FOUR", "1234", 1);
  char buffer[8] = "xxxxxxx";
  EXPECT_EQ(GetEnvironmentVariableA("TAVRIX_FOUR", nullptr, 0), 5u);
  EXPECT_EQ(GetEnvironmentVariableA("TAVRIX_FOUR", buffer, 4), 5u);
  EXPECT_STREQ(buffer, "xxxxxxx");
  EXPECT_EQ(GetEnvironmentVariableA("TAVRIX_FOUR", buffer, 5), 4u);
  EXPECT_STREQ(buffer, "1234");
}

}  // namespace
