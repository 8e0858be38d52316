// Makes chosen system calls of the library fail.
//
// The test program is linked so that the calls that open, size, map, unmap and copy files pass
// through here.
#pragma once

#ifndef _WIN32

#include <cstdint>

namespace tavrix_test {

// While it lives, the call with the given number (from 1) fails with EIO, or ENOMEM where memory is
// mapped, and nothing happens but that.
class CallFault {
 public:
  explicit CallFault(int64_t number);
  ~CallFault();
  CallFault(const CallFault&) = delete;
  CallFault& operator=(const CallFault&) = delete;

  bool Hit() const;  // whether there were that many calls
};

}  // namespace tavrix_test

#endif
