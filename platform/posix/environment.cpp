// Environment variables with case-blind names.
#include <stdlib.h>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/posix/native.h"

namespace posix_layer {
namespace {

// The text of the variable, "NAME=value", with the exact spelling or else with any other, or null.
const char* FindVariable(const char* name, size_t length) {
  const char* other = nullptr;
  for (char** entry = environ; entry && *entry; ++entry) {
    if (strncasecmp(*entry, name, length) != 0 || (*entry)[length] != '=') continue;
    if (memcmp(*entry, name, length) == 0) return *entry;
    if (!other) other = *entry;
  }
  return other;
}

bool IsPathList(const char* name) { return strcasecmp(name, "path") == 0; }

void Exchange(char* text, char from, char to) {
  for (; (text = strchr(text, from)) != nullptr; ++text) *text = to;
}

bool IsName(const char* name) { return name && *name && !strchr(name, '='); }

}  // namespace
}  // namespace posix_layer

DWORD GetEnvironmentVariableA(const char* name, char* buffer, DWORD size) {
  using namespace posix_layer;
  size_t nameLength = IsName(name) ? strlen(name) : 0;
  const char* entry = nameLength ? FindVariable(name, nameLength) : nullptr;
  if (!entry) return Fail(ERROR_ENVVAR_NOT_FOUND), 0;
  const char* value = entry + nameLength + 1;
  size_t length = strlen(value);
  if (length >= size || !buffer) return static_cast<DWORD>(length) + 1;
  memcpy(buffer, value, length + 1);
  if (IsPathList(name)) Exchange(buffer, ':', ';');
  return static_cast<DWORD>(length);
}

BOOL SetEnvironmentVariableA(const char* name, const char* value) {
  using namespace posix_layer;
  if (!IsName(name)) return Fail(ERROR_INVALID_PARAMETER);
  size_t nameLength = strlen(name);
  const char* entry = FindVariable(name, nameLength);
  if (!value && !entry) return Fail(ERROR_ENVVAR_NOT_FOUND);
  // One block: the name as it is spelled already, and the value as it is stored.
  size_t valueLength = value ? strlen(value) : 0;
  char* spelled = static_cast<char*>(malloc(nameLength + valueLength + 2));
  if (!spelled) return Fail(ERROR_NOT_ENOUGH_MEMORY);
  char* stored = spelled + nameLength + 1;
  memcpy(spelled, entry ? entry : name, nameLength);
  spelled[nameLength] = 0;
  int result;
  if (value) {
    memcpy(stored, value, valueLength + 1);
    if (IsPathList(name)) Exchange(stored, ';', ':');
    result = setenv(spelled, stored, 1);
  } else {
    result = unsetenv(spelled);
  }
  int number = errno;
  free(spelled);
  return result == 0 ? TRUE : Fail(ErrorFromErrno(number));
}
