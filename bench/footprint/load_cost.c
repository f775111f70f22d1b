/* What loading the library costs a small process: memory and time, step by step.
 *
 * usage: load_cost RUNTIME LIBQIV      e.g. load_cost libstdc++.so.6 build/release/libqiv.so
 *
 * RUNTIME is the C++ run-time library, loaded first: a C program like this one does not have it
 * yet, and it is not the library's own cost. Every step prints a line:
 *
 *   STEP RESIDENT_KIB PRIVATE_KIB LIBRARY_PRIVATE_KIB MICROSECONDS
 *
 * Private pages are those that the process has written, so that no other process shares them; the
 * last of the sizes counts those of LIBQIV's mappings alone. The pages are looked up one by one in
 * the kernel's page map, over the mappings that the process sees. Under a user-mode emulator these
 * are the program's own, without the emulator's memory. Times then are the emulator's.
 *
 * A run measures once; scripts/footprint.sh makes many and prints their medians. */
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

enum { kMaxSteps = 8, kPageEntries = 512 };

struct Memory {
  long residentPages;
  long privatePages;
  long libraryPrivatePages;
};

struct Step {
  const char* name;
  struct Memory memory;
  double microseconds;
};

struct Mapping {
  uint64_t start;
  uint64_t end;
  const char* path; /* empty for memory without a file */
};

static struct Step g_steps[kMaxSteps];
static int g_stepCount;
static char g_libraryPath[PATH_MAX];
static char g_maps[1 << 16];
static uint64_t g_entries[kPageEntries];
static int g_pageMap;
/* From an address of this program to the kernel's for the same page; wraps. */
static uint64_t g_hostOffset;

static void Fail(const char* what) {
  fprintf(stderr, "load_cost: %s\n", what);
  exit(1);
}

/* Into g_maps, as text. Without stdio, which would allocate between two measurements. */
static void ReadMaps(const char* name) {
  size_t length = 0;
  const int file = open(name, O_RDONLY | O_CLOEXEC);
  if (file < 0) Fail("the list of mappings cannot be opened");
  for (;;) {
    const ssize_t got = read(file, g_maps + length, sizeof g_maps - 1 - length);
    if (got < 0) Fail("the list of mappings cannot be read");
    if (got == 0) break;
    length += (size_t)got;
  }
  close(file);
  if (length == sizeof g_maps - 1) Fail("the list of mappings is too long");
  g_maps[length] = '\0';
}

/* Takes the line at *text, "start-end rights offset device inode path", and moves on to the next;
 * 0 at the end. */
static int NextMapping(char** text, struct Mapping* mapping) {
  char* line = *text;
  char* end = strchr(line, '\n');
  char* path;
  if (end == NULL) return 0;
  *end = '\0';
  *text = end + 1;
  mapping->start = strtoull(line, &line, 16);
  mapping->end = strtoull(line + 1, &line, 16);
  path = strpbrk(line, "/[");
  mapping->path = path != NULL ? path : "";
  return 1;
}

static uint64_t StartOf(const char* path, const char* maps) {
  char* text = g_maps;
  struct Mapping mapping;
  ReadMaps(maps);
  while (NextMapping(&text, &mapping)) {
    if (strcmp(mapping.path, path) == 0) return mapping.start;
  }
  Fail("the program is not among its own mappings");
  return 0;
}

/* An emulator shows the program's addresses under the first name and leaves the second alone. */
static uint64_t HostOffset(void) {
  static char program[PATH_MAX];
  if (readlink("/proc/self/exe", program, sizeof program - 1) <= 0) Fail("no name of the program");
  return StartOf(program, "/proc/thread-self/maps") - StartOf(program, "/proc/self/maps");
}

static void CountPages(const struct Mapping* mapping, int isLibrary, struct Memory* memory) {
  const uint64_t present = 1ULL << 63;
  const uint64_t ofFile = 1ULL << 61;    /* or in memory that several processes share */
  const uint64_t exclusive = 1ULL << 56; /* unlike the one page of zeros that all only read */
  const uint64_t pageSize = (uint64_t)sysconf(_SC_PAGESIZE);
  uint64_t address = mapping->start;
  while (address < mapping->end) {
    const uint64_t left = (mapping->end - address) / pageSize;
    const size_t wanted = left < kPageEntries ? (size_t)left : kPageEntries;
    const off_t place = (off_t)((address + g_hostOffset) / pageSize * sizeof g_entries[0]);
    const ssize_t got = pread(g_pageMap, g_entries, wanted * sizeof g_entries[0], place);
    size_t i;
    if (got <= 0) return; /* a mapping of the kernel's own */
    for (i = 0; i < (size_t)got / sizeof g_entries[0]; ++i) {
      const uint64_t entry = g_entries[i];
      const int isPrivate = (entry & (present | ofFile | exclusive)) == (present | exclusive);
      memory->residentPages += (entry & present) != 0;
      memory->privatePages += isPrivate;
      memory->libraryPrivatePages += isPrivate && isLibrary;
    }
    address += (size_t)got / sizeof g_entries[0] * pageSize;
  }
}

static struct Memory MeasureMemory(void) {
  struct Memory memory = {0, 0, 0};
  struct Mapping mapping;
  uint64_t libraryEnd = 0;
  char* text = g_maps;
  ReadMaps("/proc/self/maps");
  while (NextMapping(&text, &mapping)) {
    /* The library's zero memory has no name and follows its last named mapping. */
    const int isLibrary = strcmp(mapping.path, g_libraryPath) == 0 ||
                          (mapping.path[0] == '\0' && mapping.start == libraryEnd);
    if (isLibrary) libraryEnd = mapping.end;
    CountPages(&mapping, isLibrary, &memory);
  }
  return memory;
}

static double NowMicroseconds(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec * 1e6 + (double)now.tv_nsec / 1e3;
}

static void EndStep(const char* name, double start) {
  struct Step* step = &g_steps[g_stepCount++];
  step->microseconds = NowMicroseconds() - start;
  step->name = name;
  step->memory = MeasureMemory();
}

/* What this program needs is written before the first step, so that no step is charged for it. */
static void Prepare(const char* library) {
  struct Memory memory;
  if (realpath(library, g_libraryPath) == NULL) Fail("there is no such library");
  g_pageMap = open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC);
  if (g_pageMap < 0) Fail("/proc/self/pagemap cannot be opened");
  memset(g_maps, 1, sizeof g_maps);
  memset(g_entries, 1, sizeof g_entries);
  memset(g_steps, 1, sizeof g_steps);
  g_hostOffset = HostOffset();
  NowMicroseconds();
  memory = MeasureMemory();
  if (memory.privatePages < (long)(sizeof g_maps / (size_t)sysconf(_SC_PAGESIZE))) {
    Fail("the page map does not show this process's pages");
  }
}

static int (*Find(void* library, const char* name))(void) {
  int (*function)(void);
  *(void**)&function = dlsym(library, name);
  if (function == NULL) Fail(dlerror());
  return function;
}

static void* Load(const char* name) {
  void* library = dlopen(name, RTLD_NOW | RTLD_LOCAL);
  if (library == NULL) Fail(dlerror());
  return library;
}

int main(int argc, char** argv) {
  const long pageKib = sysconf(_SC_PAGESIZE) / 1024;
  int (*init)(void);
  int (*fini)(void);
  void* library;
  double start;
  int i;
  if (argc != 3) Fail("usage: load_cost RUNTIME LIBQIV");
  Prepare(argv[2]);

  start = NowMicroseconds();
  EndStep("start", start);
  start = NowMicroseconds();
  Load(argv[1]);
  EndStep("runtime", start);
  start = NowMicroseconds();
  library = Load(argv[2]);
  EndStep("load", start);
  init = Find(library, "QIV_Init");
  fini = Find(library, "QIV_Fini");
  start = NowMicroseconds();
  if (init() != 0) Fail("QIV_Init failed");
  EndStep("init", start);
  start = NowMicroseconds();
  if (fini() != 0) Fail("QIV_Fini failed");
  EndStep("fini", start);
  start = NowMicroseconds();
  if (dlclose(library) != 0) Fail(dlerror());
  EndStep("unload", start);

  for (i = 0; i < g_stepCount; ++i) {
    const struct Step* step = &g_steps[i];
    printf("%s %ld %ld %ld %.1f\n", step->name, step->memory.residentPages * pageKib,
           step->memory.privatePages * pageKib, step->memory.libraryPrivatePages * pageKib,
           step->microseconds);
  }
  return 0;
}
