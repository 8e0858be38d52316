// Facts about the system.
#include <sched.h>
#include <sys/utsname.h>

#include <cstdio>
#include <cstring>

#include "platform/posix/native.h"

BOOL GetVersionExA(OSVERSIONINFOA* info) {
  // The longer record of the real system begins with this one.
  constexpr DWORD kLongRecord = sizeof(OSVERSIONINFOA) + 8;
  if (!info ||
      (info->dwOSVersionInfoSize != sizeof *info && info->dwOSVersionInfoSize != kLongRecord)) {
    return posix_layer::Fail(ERROR_INSUFFICIENT_BUFFER);
  }
  unsigned major = 0, minor = 0, build = 0;
  utsname system;
  if (uname(&system) == 0) sscanf(system.release, "%u.%u.%u", &major, &minor, &build);
  info->dwMajorVersion = major;
  info->dwMinorVersion = minor;
  info->dwBuildNumber = build;
  info->dwPlatformId = VER_PLATFORM_WIN32_NT;
  info->szCSDVersion[0] = 0;
  return TRUE;
}

void GetSystemInfo(SYSTEM_INFO* info) {
  constexpr bool kWide = sizeof(void*) == 8;
  *info = {};
  info->wProcessorArchitecture = kWide ? 9 : 0;  // AMD64, INTEL
  info->dwPageSize = 4096;
  info->dwAllocationGranularity = 65536;
  info->lpMinimumApplicationAddress = reinterpret_cast<void*>(uintptr_t{0x10000});
  info->lpMaximumApplicationAddress =
      reinterpret_cast<void*>(static_cast<uintptr_t>(kWide ? 0x7FFFFFFEFFFF : 0xBFFEFFFF));
  cpu_set_t processors;
  CPU_ZERO(&processors);
  if (sched_getaffinity(0, sizeof processors, &processors) != 0) CPU_SET(0, &processors);
  info->dwNumberOfProcessors = static_cast<DWORD>(CPU_COUNT(&processors));
  for (unsigned i = 0; i < sizeof(DWORD_PTR) * 8; ++i) {
    if (CPU_ISSET(i, &processors)) info->dwActiveProcessorMask |= DWORD_PTR{1} << i;
  }
  info->dwProcessorType = kWide ? 8664 : 586;
  info->wProcessorLevel = 6;
}
