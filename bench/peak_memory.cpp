#include "peak_memory.h"

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace ostrel_native::bench {

namespace {

double PeakKilobytes() {
  double peak = 0.0;
  std::FILE* const status = std::fopen("/proc/self/status", "r");
  char line[256];
  while (status != nullptr && std::fgets(line, sizeof line, status) != nullptr) {
    std::sscanf(line, "VmHWM: %lf kB", &peak);
  }
  if (status != nullptr) {
    std::fclose(status);
  }
  return peak;
}

// Sets the peak back to what is resident now.
void ResetPeak() {
  malloc_trim(0);
  std::FILE* const reset = std::fopen("/proc/self/clear_refs", "w");
  if (reset != nullptr) {
    std::fputs("5", reset);
    std::fclose(reset);
  }
}

}  // namespace

double PeakBytes(const std::function<void()>& operation) {
  int ends[2];
  if (pipe(ends) != 0) {
    return 0.0;
  }
  double bytes = 0.0;
  const pid_t child = fork();
  if (child == 0) {
    ResetPeak();
    const double before = PeakKilobytes();
    operation();
    bytes = 1024.0 * (PeakKilobytes() - before);
    const bool written = write(ends[1], &bytes, sizeof bytes) == sizeof bytes;
    _exit(written ? 0 : 1);
  }
  close(ends[1]);
  if (read(ends[0], &bytes, sizeof bytes) != sizeof bytes) {
    bytes = 0.0;
  }
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return bytes;
}

}  // namespace ostrel_native::bench
