// Tokens and the end of the session, on a system without privileges.
#include <cstddef>

#include "platform/posix/handle.h"
#include "platform/posix/native.h"

namespace posix_layer {
namespace {

void CloseToken(void*) {}

constexpr HandleKind kTokenKind = {CloseToken};

}  // namespace
}  // namespace posix_layer

BOOL OpenProcessToken(HANDLE process, DWORD, HANDLE* token) {
  using namespace posix_layer;
  if (process != GetCurrentProcess()) return Fail(ERROR_INVALID_HANDLE);
  // Tokens carry no state: a handle costs a slot and no memory.
  static char tokens;
  *token = OpenHandle(kTokenKind, &tokens);
  return *token != nullptr;
}

BOOL LookupPrivilegeValueA(const char*, const char* name, LUID* privilege) {
  if (!name || !privilege) return posix_layer::Fail(ERROR_INVALID_PARAMETER);
  *privilege = {};  // none is told from another: no token holds any
  return TRUE;
}

BOOL AdjustTokenPrivileges(HANDLE token, BOOL disableAll, TOKEN_PRIVILEGES* state, DWORD size,
                           TOKEN_PRIVILEGES* previous, DWORD* previousSize) {
  using namespace posix_layer;
  if (!HandleObject(token, kTokenKind)) return FALSE;
  if (!disableAll && !state) return Fail(ERROR_INVALID_PARAMETER);
  if (previous) {  // receives what was changed: none
    constexpr DWORD kNone = offsetof(TOKEN_PRIVILEGES, Privileges);
    if (previousSize) *previousSize = kNone;
    if (size < kNone) return Fail(ERROR_INSUFFICIENT_BUFFER);
    previous->PrivilegeCount = 0;
  }
  bool asked = !disableAll && state->PrivilegeCount != 0;
  SetLastError(asked ? ERROR_NOT_ALL_ASSIGNED : ERROR_SUCCESS);
  return TRUE;
}

BOOL ExitWindowsEx(UINT, DWORD) { return posix_layer::Fail(ERROR_PRIVILEGE_NOT_HELD); }
