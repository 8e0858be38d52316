// Tokens, and the end of the session that does not come.
#include <gtest/gtest.h>

#include "platform/win32.h"

namespace {

TEST(PosixSession, OpensATokenOfTheCallingProcessAlone) {
  HANDLE self = GetCurrentProcess(), token = nullptr;
  EXPECT_TRUE(CloseHandle(self));
  ASSERT_TRUE(OpenProcessToken(self, TOKEN_QUERY, &token)) << "it is not closed";
  HANDLE none = nullptr;
  for (HANDLE other : {none, token}) {
    SetLastError(0);
    EXPECT_FALSE(OpenProcessToken(other, TOKEN_QUERY, &none));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  }
  EXPECT_TRUE(CloseHandle(token));
  EXPECT_FALSE(CloseHandle(token));
}

TEST(PosixSession, GrantsNothing) {
  HANDLE token;
  ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token));
  TOKEN_PRIVILEGES state = {1, {{{}, SE_PRIVILEGE_ENABLED}}}, before = {7, {}};
  EXPECT_TRUE(LookupPrivilegeValueA(nullptr, "SeShutdownPrivilege", &state.Privileges[0].Luid));
  EXPECT_FALSE(LookupPrivilegeValueA(nullptr, nullptr, &state.Privileges[0].Luid));
  EXPECT_FALSE(LookupPrivilegeValueA(nullptr, "SeShutdownPrivilege", nullptr));
  EXPECT_FALSE(AdjustTokenPrivileges(token, FALSE, nullptr, 0, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  DWORD size = 0;
  EXPECT_TRUE(AdjustTokenPrivileges(token, FALSE, &state, sizeof before, &before, &size));
  EXPECT_EQ(GetLastError(), ERROR_NOT_ALL_ASSIGNED);
  EXPECT_EQ(before.PrivilegeCount, 0u);
  EXPECT_EQ(size, sizeof(DWORD));
  EXPECT_TRUE(AdjustTokenPrivileges(token, TRUE, nullptr, sizeof before, &before, nullptr));
  EXPECT_TRUE(AdjustTokenPrivileges(token, FALSE, &before, 0, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS) << "none was asked for";
  EXPECT_FALSE(AdjustTokenPrivileges(token, FALSE, &state, 0, &before, &size));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_TRUE(CloseHandle(token));
  EXPECT_FALSE(AdjustTokenPrivileges(token, TRUE, nullptr, 0, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(ExitWindowsEx(EWX_REBOOT | EWX_FORCE, 0));
  EXPECT_EQ(GetLastError(), ERROR_PRIVILEGE_NOT_HELD);
}

}  // namespace
