// Running a command as a child process and reading what it cost: wall time
// and peak memory (the child's own maximum resident set).
#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

namespace bench {

struct ChildRun {
  double seconds = 0;
  long peakKb = 0;
  int status = 0;
};

inline ChildRun RunChild(const std::vector<std::string>& args, const std::string& stdoutPath = "/dev/null") {
  std::fflush(stdout);  // the child must not inherit unwritten output
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = fork();
  if (pid == 0) {
    FILE* out = std::freopen(stdoutPath.c_str(), "w", stdout);
    (void)out;
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  struct rusage usage {};
  wait4(pid, &status, 0, &usage);
  ChildRun run;
  run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  run.peakKb = usage.ru_maxrss;
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return run;
}

}  // namespace bench
