// Texts for error codes.
#include <cstdlib>
#include <cstring>

#include "platform/posix/message_table.h"
#include "platform/posix/native.h"

DWORD FormatMessageA(DWORD flags, const void*, DWORD code, DWORD, char* buffer, DWORD, void*) {
  using namespace posix_layer;
  constexpr DWORD kFlags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;
  constexpr char kEnd[] = "\r\n";
  if (flags != kFlags || !buffer) return Fail(ERROR_INVALID_PARAMETER), 0;
  char* block = nullptr;
  memcpy(buffer, &block, sizeof block);
  const SystemMessage* message = FindSystemMessage(code);
  if (!message) return Fail(ERROR_MR_MID_NOT_FOUND), 0;
  if (!message->text) return Fail(ERROR_INVALID_PARAMETER), 0;
  size_t length = strlen(message->text);
  block = static_cast<char*>(malloc(length + sizeof kEnd));
  if (!block) return Fail(ERROR_NOT_ENOUGH_MEMORY), 0;
  memcpy(block, message->text, length);
  memcpy(block + length, kEnd, sizeof kEnd);
  memcpy(buffer, &block, sizeof block);
  return static_cast<DWORD>(length + sizeof kEnd - 1);
}

void* LocalFree(void* block) {
  free(block);
  return nullptr;
}
