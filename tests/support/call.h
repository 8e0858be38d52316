// Makes chosen system calls of the library fail, or puts something else in their place.
//
// The test program is linked so that the calls listed in call.cpp pass through there, by the names
// that the library calls them by; of those that it makes by number, "getdents64" alone.
#pragma once

#ifndef _WIN32

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <tuple>
#include <utility>

namespace tavrix_test {

// While it lives, calls fail, and nothing happens but that. One at a time.
class CallFault {
 public:
  // The call with the given number (from 1) of all that may fail in a sound program, with EIO or
  // what is the usual reason.
  explicit CallFault(int64_t number) : number_(number) { current_ = this; }

  // The calls of that name, with that errno: each of them, or the one with the given number.
  CallFault(const char* call, int error, int64_t number = 0)
      : call_(call), error_(error), number_(number) {
    current_ = this;
  }

  ~CallFault() { current_ = nullptr; }
  CallFault(const CallFault&) = delete;
  CallFault& operator=(const CallFault&) = delete;

  bool Hit() const { return seen_ > 0 && seen_ >= number_; }  // whether a call has failed

  // For call.cpp: whether this call is to fail. Sets errno, to `usual` where nothing else is told;
  // 0 is for a call that fails by its name alone.
  static bool Fails(const char* call, int usual) {
    CallFault* fault = current_;
    if (!fault || (fault->call_ ? strcmp(fault->call_, call) != 0 : usual == 0)) return false;
    if (++fault->seen_ != fault->number_ && fault->number_ != 0) return false;
    errno = fault->call_ ? fault->error_ : usual;
    return true;
  }

 private:
  inline static CallFault* current_ = nullptr;

  const char* call_ = nullptr;  // null: any
  int error_ = 0;
  int64_t number_, seen_ = 0;
};

// What stands in for the call with the name; it is given the words of the arguments.
inline std::pair<const char*, std::function<int64_t(const intptr_t*)>> standIn = {"", {}};

template <typename Signature>
class StandIn;

// While it lives, the function takes the place of the call with that name, which has the same
// signature, a word for each parameter. Inside it the call is the system's. One at a time.
template <typename Result, typename... Parameters>
class StandIn<Result(Parameters...)> {
 public:
  StandIn(const char* call, std::function<Result(Parameters...)> function) {
    standIn = {call, [call, function](const intptr_t* word) -> int64_t {
                 standIn.first = "";
                 Result result =
                     std::apply(function, std::tuple<Parameters...>{Parameters(*word++)...});
                 standIn.first = call;
                 return result;
               }};
  }
  ~StandIn() { standIn.first = ""; }
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;
};

// How many descriptors are open: compare with another count.
inline int64_t OpenDescriptors() {
  std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

}  // namespace tavrix_test

#endif
