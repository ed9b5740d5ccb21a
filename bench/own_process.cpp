#include "own_process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "harness.h"

namespace ostrel_native::bench {

namespace {

void Require(bool done, const char* what) {
  if (!done) {
    std::perror(what);
    std::exit(1);
  }
}

double ProcessSeconds() {
  timespec now = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Runs the operation for each number of threads that comes in, until the other end is closed.
void Serve(const std::function<void(int threads)>& operation, int in, int out) {
  int threads = 0;
  while (read(in, &threads, sizeof threads) == static_cast<ssize_t>(sizeof threads)) {
    const double begin = ProcessSeconds();
    const double wall = SecondsOf([&operation, threads] { operation(threads); }, 1);
    const OwnProcess::Seconds seconds{wall, ProcessSeconds() - begin};
    if (write(out, &seconds, sizeof seconds) != static_cast<ssize_t>(sizeof seconds)) {
      return;
    }
  }
}

}  // namespace

OwnProcess::OwnProcess(const std::function<void(int threads)>& operation) {
  int there[2];
  int back[2];
  Require(pipe(there) == 0 && pipe(back) == 0, "pipe");
  std::fflush(stdout);
  child = fork();
  Require(child >= 0, "fork");
  if (child == 0) {
    close(there[1]);
    close(back[0]);
    Serve(operation, there[0], back[1]);
    _exit(0);
  }
  close(there[0]);
  close(back[1]);
  toChild = there[1];
  fromChild = back[0];
}

OwnProcess::~OwnProcess() {
  close(toChild);
  close(fromChild);
  waitpid(child, nullptr, 0);
}

OwnProcess::Seconds OwnProcess::Run(int threads) const {
  Seconds seconds{};
  Require(write(toChild, &threads, sizeof threads) == static_cast<ssize_t>(sizeof threads) &&
              read(fromChild, &seconds, sizeof seconds) == static_cast<ssize_t>(sizeof seconds),
          "a contender's process");
  return seconds;
}

}  // namespace ostrel_native::bench
