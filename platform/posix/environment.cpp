// Environment variables with case-blind names.
#include <stdlib.h>
#include <strings.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>

#include "platform/posix/native.h"

namespace posix_layer {
namespace {

int Fold(char c) { return tolower(static_cast<unsigned char>(c)); }

bool IsName(const char* name) { return name && *name && !strchr(name, '='); }

// The place of the value in "NAME=value" when that is the name, or null. Nothing else than a name
// is ever found: no text goes on behind a '='.
const char* ValueIn(const char* entry, const char* name) {
  while (*name && *entry == *name && *name != '=') ++entry, ++name;
  return !*name && *entry == '=' ? entry + 1 : nullptr;
}

const char* ValueInBlindly(const char* entry, const char* name) {
  while (*name && Fold(*entry) == Fold(*name) && *name != '=') ++entry, ++name;
  return !*name && *entry == '=' ? entry + 1 : nullptr;
}

// The value of the variable with the exact spelling or else with any other, or null.
const char* FindValue(const char* name) {
  if (!environ || !*name) return nullptr;
  char second = name[1] ? name[1] : '=';
  for (char** entry = environ; *entry; ++entry) {
    if ((*entry)[0] != name[0] || (*entry)[1] != second) continue;  // as nearly all
    if (const char* value = ValueIn(*entry, name)) return value;
  }
  for (char** entry = environ; *entry; ++entry)
    if (const char* value = ValueInBlindly(*entry, name)) return value;
  return nullptr;
}

bool IsPathList(const char* name) {
  return (name[0] == 'P' || name[0] == 'p') && strcasecmp(name, "path") == 0;
}

void Exchange(char* text, char from, char to) {
  for (; (text = strchr(text, from)) != nullptr; ++text) *text = to;
}

}  // namespace
}  // namespace posix_layer

DWORD GetEnvironmentVariableA(const char* name, char* buffer, DWORD size) {
  using namespace posix_layer;
  const char* value = name ? FindValue(name) : nullptr;
  if (!value) return Fail(ERROR_ENVVAR_NOT_FOUND), 0;
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
  const char* before = FindValue(name);
  if (!value && !before) return Fail(ERROR_ENVVAR_NOT_FOUND);
  // One block: the name as it is spelled already, and the value as it is stored.
  size_t valueLength = value ? strlen(value) : 0;
  char* spelled = static_cast<char*>(malloc(nameLength + valueLength + 2));
  if (!spelled) return Fail(ERROR_NOT_ENOUGH_MEMORY);
  char* stored = spelled + nameLength + 1;
  memcpy(spelled, before ? before - 1 - nameLength : name, nameLength);
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
