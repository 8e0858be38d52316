# Compiler and linker options, as interface libraries that the targets name.

# Everything: warnings, and what a 32-bit x86 build needs. Callers of the 32-bit library may keep the
# stack at 4 bytes only, and its floating-point results must not depend on x87 registers.
add_library(tavrix_flags INTERFACE)
target_compile_options(tavrix_flags INTERFACE -Wall -Wextra -Wshadow)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_options(tavrix_flags INTERFACE
    -msse2 -mfpmath=sse -ffp-contract=off -mstackrealign)
endif()
if(WIN32)
  target_link_options(tavrix_flags INTERFACE -static)
endif()

# Hardening, as Debian's packages have it on Linux; scripts/test-install looks whether it is there.
# The sanitizers bring checks of their own, and _FORTIFY_SOURCE needs an optimised build. On Windows
# there is no handler that a stack overwrite could replace: the image says that it has none.
if(WIN32)
  target_link_options(tavrix_flags INTERFACE -Wl,--dynamicbase,--nxcompat,--no-seh)
else()
  include(CheckPIESupported)
  check_pie_supported()
  target_compile_options(tavrix_flags INTERFACE -fstack-protector-strong)
  if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize|-O0" AND NOT CMAKE_BUILD_TYPE STREQUAL Debug)
    target_compile_options(tavrix_flags INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()
  target_link_options(tavrix_flags INTERFACE -Wl,-z,relro,-z,now)
endif()

# exports, quern and platform alone: no exceptions, no run-time types, and none of the assumptions
# that would delete a loop that never ends by rule, or a check of a pointer that was just used.
add_library(tavrix_library_flags INTERFACE)
target_compile_options(tavrix_library_flags INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
  -fno-finite-loops -fno-strict-aliasing -fno-delete-null-pointer-checks -fwrapv
  -fvisibility=hidden -ffunction-sections
  # Zeroed data in sections of its own would take up bytes in a DLL's file.
  $<$<NOT:$<PLATFORM_ID:Windows>>:-fdata-sections>)

# The shared library: nothing but the exports is visible, and a program that loads it pays for no
# run-time library that it does not use itself.
add_library(tavrix_shared_flags INTERFACE)
if(WIN32)
  target_link_options(tavrix_shared_flags INTERFACE -static -Wl,--gc-sections)
else()
  target_link_options(tavrix_shared_flags INTERFACE
    -Wl,--exclude-libs,ALL -Wl,--gc-sections -Wl,--as-needed -static-libgcc)
  # clang leaves the sanitizers' functions to the program.
  if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    target_link_options(tavrix_shared_flags INTERFACE -Wl,-z,defs)
  endif()
endif()
