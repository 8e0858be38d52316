// Makes chosen system calls of the library fail, or puts something else in their place.
//
// The test program is linked so that the calls listed in call.cpp pass through here, by the names
// that the library calls them by; of those that it makes by number, "getdents64" alone.
#pragma once

#ifndef _WIN32

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <utility>

namespace tavrix_test {

// While it lives, calls fail, and nothing happens but that.
class CallFault {
 public:
  // The call with the given number (from 1) of all that may fail in a sound program, with EIO or
  // what is the usual reason.
  explicit CallFault(int64_t number) : number_(number) { current_ = this; }

  // The calls of that name, with that errno: each of them, or the one with the given number.
  CallFault(const char* call, int error, int64_t number = kEach)
      : call_(call), error_(error), number_(number) {
    current_ = this;
  }

  ~CallFault() { current_ = outer_; }
  CallFault(const CallFault&) = delete;
  CallFault& operator=(const CallFault&) = delete;

  bool Hit() const { return seen_ > 0 && seen_ >= number_; }  // whether a call has failed

  // For call.cpp: whether this call is to fail. Sets errno, to `usual` where nothing else is told;
  // 0 is for a call that fails by its name alone.
  static bool Fails(const char* call, int usual);

 private:
  static constexpr int64_t kEach = 0;
  inline static CallFault* current_ = nullptr;

  CallFault* outer_ = current_;  // lives as well
  const char* call_ = nullptr;   // null: any
  int error_ = 0;
  int64_t number_;
  int64_t seen_ = 0;
};

template <typename Signature>
class StandIn;

// While it lives, the function takes the place of the call with that name, which has the same
// signature. Inside it the call is the system's.
template <typename Result, typename... Parameters>
class StandIn<Result(Parameters...)> {
 public:
  StandIn(const char* call, std::function<Result(Parameters...)> function)
      : call_(call), function_(std::move(function)) {
    current_ = this;
  }
  ~StandIn() { current_ = nullptr; }
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;

  // For call.cpp: what stands in for the call, or null.
  static StandIn* Of(const char* call) {
    return current_ && strcmp(current_->call_, call) == 0 ? current_ : nullptr;
  }

  Result operator()(Parameters... parameters) {
    current_ = nullptr;
    Result result = function_(parameters...);
    current_ = this;
    return result;
  }

 private:
  inline static StandIn* current_ = nullptr;

  const char* call_;
  std::function<Result(Parameters...)> function_;
};

// How many descriptors are open: compare with another count.
inline int64_t OpenDescriptors() {
  std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

}  // namespace tavrix_test

#endif
