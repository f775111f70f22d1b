// What loading the library costs a process: the time of dlopen() and the first start, and the
// memory that is the process's own afterwards and was not before.
//
// usage: load_cost [RUNS]      default 50; each run is a fresh process
//
// The C++ run-time library is in the process already, as this is a C++ program.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

namespace {

constexpr const char* kChildArgument = "--child";

struct Cost {
  double microseconds;
  long dirtyKib;
};

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "load_cost: %s\n", what);
  std::exit(1);
}

double NowMicroseconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

// Read without stdio, which would allocate between the two measurements.
long PrivateDirtyKib() {
  static char text[4096];
  const int file = open("/proc/self/smaps_rollup", O_RDONLY | O_CLOEXEC);
  if (file < 0) Fail("/proc/self/smaps_rollup cannot be opened");
  const ssize_t length = read(file, text, sizeof text - 1);
  close(file);
  if (length <= 0) Fail("/proc/self/smaps_rollup cannot be read");
  text[length] = '\0';
  const char* field = std::strstr(text, "Private_Dirty:");
  if (field == nullptr) Fail("/proc/self/smaps_rollup has no Private_Dirty");
  return std::strtol(field + std::strlen("Private_Dirty:"), nullptr, 10);
}

int RunChild() {
  // Not part of the library's cost: the page that the reader's own buffer lies in.
  PrivateDirtyKib();
  const long dirtyBefore = PrivateDirtyKib();
  const double start = NowMicroseconds();
  void* library = dlopen(QIV_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) Fail(dlerror());
  const auto init = reinterpret_cast<int (*)()>(dlsym(library, "QIV_Init"));
  if (init == nullptr || init() != 0) Fail("QIV_Init failed");
  const Cost cost = {NowMicroseconds() - start, PrivateDirtyKib() - dirtyBefore};
  return write(STDOUT_FILENO, &cost, sizeof cost) == static_cast<ssize_t>(sizeof cost) ? 0 : 1;
}

Cost MeasureOnce() {
  int ends[2];
  if (pipe(ends) != 0) Fail("no pipe");
  const pid_t child = fork();
  if (child < 0) Fail("fork failed");
  if (child == 0) {
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
    // The library's own line about its load is written, but not onto the reader's screen.
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    execl("/proc/self/exe", "load_cost", kChildArgument, static_cast<char*>(nullptr));
    _exit(127);
  }
  close(ends[1]);
  Cost cost = {};
  const ssize_t length = read(ends[0], &cost, sizeof cost);
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (status != 0 || length != static_cast<ssize_t>(sizeof cost)) Fail("a run failed");
  return cost;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], kChildArgument) == 0) return RunChild();
  const long runs = argc == 2 ? std::strtol(argv[1], nullptr, 10) : 50;
  if (runs < 1) Fail("usage: load_cost [RUNS]");

  std::vector<double> times;
  std::vector<long> sizes;
  for (long run = 0; run < runs; ++run) {
    const Cost cost = MeasureOnce();
    times.push_back(cost.microseconds);
    sizes.push_back(cost.dirtyKib);
  }
  std::sort(times.begin(), times.end());
  std::sort(sizes.begin(), sizes.end());

  std::printf("library:               %s\n", QIV_LIBRARY);
  std::printf("runs:                  %ld\n", runs);
  std::printf("load and first start:  min %.0f us, median %.0f us, max %.0f us\n", times.front(),
              times[times.size() / 2], times.back());
  std::printf("private dirty memory:  min %ld KiB, median %ld KiB, max %ld KiB\n", sizes.front(),
              sizes[sizes.size() / 2], sizes.back());
  return 0;
}
