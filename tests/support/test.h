// What every test includes: the library, the tools of tests/support, and the headers around them.
// Compiled once, ahead of the tests.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <deque>
#include <filesystem>
#include <optional>
#include <thread>

#include "exports/tavrix32.h"
#include "platform/win32.h"
#include "quern/ccsl.h"
#include "quern/cerr.h"
#include "quern/cfile.h"
#include "quern/cfmt.h"
#include "quern/cmem.h"
#include "quern/cobj.h"
#include "quern/cscan.h"
#include "quern/csys.h"
#include "quern/ctime.h"
#include "tests/support/alloc.h"
#include "tests/support/call.h"
#include "tests/support/child.h"
#include "tests/support/limit.h"
#include "tests/support/terminal.h"
#include "tests/support/traced.h"
#include "tests/support/trail.h"
#include "tests/support/transcript.h"
#include "tests/support/tree.h"
#include "tests/support/trial.h"

#ifndef _WIN32
#include <dlfcn.h>
#include <fcntl.h>
#include <locale.h>
#include <malloc.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#endif
