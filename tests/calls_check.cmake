# Checks that the tests can make every system call of LIBRARY fail: that the linker sends it through
# support/call.cpp (WRAPPED, names with blanks between them), unless it is left out below.
#
#   cmake -D LIBRARY=file -D NM=nm -D "WRAPPED=name ..." -P calls_check.cmake

set(left_out
  # Touch memory alone: the compiler's helpers, bytes and texts, records that are filled.
  "_.*|mem(chr|cmp|cpy|move|rchr|set)|str[a-z]+|to(lower|upper)|modf|sprintf|v?snprintf|malloc_usable_size"
  "getenv|secure_getenv|localtime_r|setlocale|daylight|environ|timezone|tzname"
  "sig(add|empty|fill)set|sigismember|posix_spawnattr_.*|posix_spawn_file_actions_(init|destroy)"
  # The C runtime's streams, which are the system's on Windows as well.
  "std(in|out|err)|f(ileno|open|close|read|write|seek|tell|flush|putc|puts)|clearerr|getc|printf|putc|puts"
  # Cannot fail with the arguments given, or no result is looked at.
  "close|dup2|exit|get(euid|pagesize|pgrp|pid)|nanosleep|pause|pthread_sigmask|raise|sched_yield"
  "sig(action|nal|pending|timedwait)|uname|unsetenv"
  # Ask what a descriptor is; a failure is one of the answers.
  "isatty|tcgetpgrp")

execute_process(COMMAND ${NM} ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE " U __([a-z0-9]+)_(2|chk)\n" " U \\1\n" symbols "${symbols}")  # checked twins
string(REGEX MATCHALL " U [^\n]+" calls "${symbols}")
string(REGEX MATCHALL " [A-TV-Z] [^\n]+" own "${symbols}")
list(TRANSFORM calls REPLACE "^ . " "")
list(TRANSFORM own REPLACE "^ . " "")
separate_arguments(WRAPPED)
list(REMOVE_DUPLICATES calls)
list(LENGTH calls count)
list(REMOVE_ITEM calls ${own} ${WRAPPED})
foreach(names IN LISTS left_out)
  list(FILTER calls EXCLUDE REGEX "^(${names})$")
endforeach()
if(calls OR count LESS 50)
  message(FATAL_ERROR "calls (of ${count}) that no test can make fail: ${calls}")
endif()
