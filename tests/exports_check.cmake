# Checks what LIBRARY shows to the world: the eight functions and nothing else.
#
#   cmake -D LIBRARY=file -D WINDOWS=0|1 -D NM=nm -D OBJDUMP=objdump -D OBJCOPY=objcopy -P exports_check.cmake

# In the order of their ordinals, with the bytes of arguments that each removes.
set(functions XDlgFileOpen@4 XErrorInfo@4 XFileList@16 XProcStart@4 XStrCSpn@12 XStrCmp@12 XStrLen@4
  XStrSpn@12)

function(expect what actual expected)
  if(NOT "${actual}" STREQUAL "${expected}")
    message(FATAL_ERROR "${what}:\n  ${actual}\nexpected:\n  ${expected}")
  endif()
endfunction()

function(run result)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  set(${result} "${output}" PARENT_SCOPE)
endfunction()

if(NOT WINDOWS)
  run(output ${NM} -D --defined-only ${LIBRARY})
  string(REGEX MATCHALL "[^\n]+" lines "${output}")
  set(names "")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^.* " "" name "${line}")
    list(APPEND names ${name})
  endforeach()
  list(SORT names)
  list(TRANSFORM functions REPLACE "@.*" "")
  expect("exported symbols" "${names}" "${functions}")
  return()
endif()

run(output ${OBJDUMP} -p ${LIBRARY})

# "Name   0000c0a0 Tavrix32.dll" in the export directory.
string(REGEX MATCH "\nName[ \t]+[0-9a-f]+ ([^\n]+)" unused "${output}")
expect("module name" "${CMAKE_MATCH_1}" "Tavrix32.dll")

# "[   0] _XDlgFileOpen@4": index and name. Their ordinals are what the client calls them by.
string(REGEX REPLACE "^.*\\[Ordinal/Name Pointer\\] Table" "" table "${output}")
string(REGEX MATCHALL "_X[A-Za-z]+@[0-9]+" names "${table}")
list(TRANSFORM functions PREPEND "_")
expect("names" "${names}" "${functions}")

string(REGEX MATCHALL "DLL Name: [^\n]+" imports "${output}")
foreach(import IN LISTS imports)
  string(REGEX REPLACE "DLL Name: " "" module "${import}")
  string(TOLOWER ${module} module)
  if(NOT module MATCHES "^(kernel32|msvcrt|user32|advapi32|comdlg32)\\.dll$")
    message(FATAL_ERROR "imports from ${module}")
  endif()
endforeach()

run(output ${OBJCOPY} --strip-all ${LIBRARY} stripped.dll)
file(SIZE stripped.dll size)
if(size GREATER_EQUAL 204800)
  message(FATAL_ERROR "${size} bytes; a drop-in for small programs stays below 204800")
endif()
