// Narrows what the system lets this process use, where there are such limits.
#pragma once

#ifndef _WIN32

#include <sys/resource.h>

namespace tavrix_test {

// A limit of this process (RLIMIT_NOFILE and the like) while it lives.
class Limit {
 public:
  Limit(__rlimit_resource resource, rlim_t most) : resource_(resource) {
    getrlimit(resource, &before_);
    const rlimit narrow = {most, before_.rlim_max};
    setrlimit(resource, &narrow);
  }
  ~Limit() { setrlimit(resource_, &before_); }
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;

 private:
  __rlimit_resource resource_;
  rlimit before_;
};

}  // namespace tavrix_test

#endif
