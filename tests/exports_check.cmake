# Checks what LIBRARY shows to the world and asks of it. On Windows its client checks the exports.
#
#   cmake -D LIBRARY=file -D WINDOWS=0|1 -D NM=nm -D OBJDUMP=objdump -D OBJCOPY=objcopy -P exports_check.cmake

function(run result)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  set(${result} "${output}" PARENT_SCOPE)
endfunction()

if(NOT WINDOWS)
  run(output ${NM} -D --defined-only --format=just-symbols ${LIBRARY})
  set(functions "XDlgFileOpen\nXErrorInfo\nXFileList\nXProcStart\nXStrCSpn\nXStrCmp\nXStrLen\nXStrSpn\n")
  if(NOT output STREQUAL functions)
    message(FATAL_ERROR "exported symbols:\n${output}")
  endif()
  return()
endif()

run(output ${OBJDUMP} -p ${LIBRARY})
string(REGEX MATCHALL "DLL Name: [^\n]+" imports "${output}")
list(TRANSFORM imports TOLOWER)
list(FILTER imports EXCLUDE REGEX "^dll name: (kernel32|msvcrt|user32|advapi32|comdlg32)\\.dll$")
run(ignored ${OBJCOPY} --strip-all ${LIBRARY} stripped.dll)
file(SIZE stripped.dll size)
if(NOT output MATCHES "\nName[ \t]+[0-9a-f]+ Tavrix32\\.dll\n" OR imports)
  message(FATAL_ERROR "imports from ${imports}\n${output}")
endif()
if(size GREATER_EQUAL 204800)
  message(FATAL_ERROR "${size} bytes; a drop-in for small programs stays below 204800")
endif()
