// Runs a body in a child process, where there is fork.
#pragma once

#ifndef _WIN32

#include <sys/wait.h>
#include <unistd.h>

namespace tavrix_test {

// The exit code of the child: what the body returns, or what the process was ended with; minus the
// signal that killed it. The child ends by exit.
template <typename Body>
int InChild(Body body) {
  pid_t child = fork();
  if (child == 0) exit(body());
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace tavrix_test

#endif
