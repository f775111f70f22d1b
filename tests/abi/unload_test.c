/*
 * Loads and unloads the shared library many times and checks that the process is afterwards what it
 * was before: mappings, memory, descriptors, threads and thread-local keys.
 *
 * usage: unload_test LIBRARY load|start|threads|pool|log
 */
#include <dirent.h>
#include <dlfcn.h>
#include <limits.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#ifdef QIV_HAVE_MALLINFO2
#include <malloc.h>
#endif

enum { kWarmUpRounds = 20, kRounds = 200, kSettleAttempts = 200 };

typedef struct {
  long mappings;
  long dataKib;
  long heapBytes;
  long descriptors;
  long threads;
} Usage;

static void Fail(const char* what) {
  fprintf(stderr, "unload_test: %s\n", what);
  exit(1);
}

typedef int (*Function)(void);
typedef unsigned int (*ThreadCreate)(void* (*routine)(void*), void* argument,
                                     unsigned int stackSize, int ignored, int priority, int policy);
typedef int (*ThreadWait)(unsigned int id);
typedef int (*PoolInit)(unsigned int limit);
typedef void* (*PoolAlloc)(unsigned int size);
typedef int (*Log)(int level, const char* file, int line, const char* format, ...);
typedef int (*EnableTarget)(int target, const void* arg, unsigned int maxSize, unsigned int cyclic);

/* Writes the address of a function to `function`, which points to a function pointer: ISO C has no
 * cast from what dlsym() gives to one. */
static void FindFunction(void* library, const char* name, void* function) {
  void* const address = dlsym(library, name);
  if (address == NULL) {
    fprintf(stderr, "unload_test: %s is not found through the library\n", name);
    exit(1);
  }
  memcpy(function, &address, sizeof address);
}

/* The mappings and the size of the writable ones; the kernel's own sum, VmData, would under an
 * emulator be the emulator's. */
static void MeasureMappings(Usage* usage) {
  FILE* const file = fopen("/proc/self/maps", "r");
  char line[PATH_MAX + 128];
  if (file == NULL) Fail("/proc/self/maps cannot be read");
  usage->mappings = 0;
  usage->dataKib = 0;
  while (fgets(line, sizeof line, file) != NULL) {
    unsigned long first;
    unsigned long last;
    char access[5];
    if (sscanf(line, "%lx-%lx %4s", &first, &last, access) != 3) Fail("odd /proc/self/maps");
    ++usage->mappings;
    if (access[1] == 'w') usage->dataKib += (long)((last - first) / 1024);
  }
  fclose(file);
}

static long CountEntries(const char* path) {
  DIR* const directory = opendir(path);
  long entries = 0;
  if (directory == NULL) Fail(path);
  while (readdir(directory) != NULL) ++entries;
  closedir(directory);
  return entries - 2; /* without "." and ".." */
}

static long HeapBytes(void) {
#ifdef QIV_HAVE_MALLINFO2
  return (long)mallinfo2().uordblks;
#else
  return 0;
#endif
}

static Usage Measure(void) {
  Usage usage;
  usage.descriptors = CountEntries("/proc/self/fd");
  usage.threads = CountEntries("/proc/self/task");
  usage.heapBytes = HeapBytes();
  MeasureMappings(&usage);
  return usage;
}

static int IsSame(const Usage* a, const Usage* b) {
#ifdef QIV_SANITIZED
  /* A sanitizer keeps records of its own about every library that was ever loaded. */
  return a->descriptors == b->descriptors && a->threads == b->threads;
#else
  return a->mappings == b->mappings && a->dataKib == b->dataKib && a->heapBytes == b->heapBytes &&
         a->descriptors == b->descriptors && a->threads == b->threads;
#endif
}

static void Print(const char* when, const Usage* usage) {
  fprintf(
      stderr, "%s: %ld mappings, %ld KiB writable, %ld heap bytes, %ld descriptors, %ld threads\n",
      when, usage->mappings, usage->dataKib, usage->heapBytes, usage->descriptors, usage->threads);
}

/* How many thread-local keys can be created now; gives them all back. */
static int CountFreeKeys(void) {
  static pthread_key_t keys[PTHREAD_KEYS_MAX + 1];
  int count = 0;
  int i;
  while (count <= PTHREAD_KEYS_MAX && pthread_key_create(&keys[count], NULL) == 0) ++count;
  for (i = 0; i < count; ++i) pthread_key_delete(keys[i]);
  return count;
}

static void LookUpLibuuid(void* library) {
  static const char* const names[] = {"uuid_generate", "uuid_parse", "uuid_unparse",
                                      "uuid_compare"};
  Function function;
  size_t i;
  for (i = 0; i < sizeof names / sizeof names[0]; ++i) FindFunction(library, names[i], &function);
}

static void StartAndStop(void* library) {
  Function start;
  Function stop;
  FindFunction(library, "QIV_Init", &start);
  FindFunction(library, "QIV_Fini", &stop);
  if (start() != 0) Fail("QIV_Init failed");
  if (stop() != 0) Fail("QIV_Fini failed");
}

static Function g_getSelfId;

static void* CountRun(void* counter) {
  ++*(int*)counter;
  if (g_getSelfId() == 0) Fail("the thread has no id");
  return NULL;
}

static void RunThread(void* library) {
  ThreadCreate create;
  ThreadWait wait;
  int runs = 0;
  unsigned int id;
  FindFunction(library, "QIV_Thread_Create", &create);
  FindFunction(library, "QIV_Thread_Wait", &wait);
  FindFunction(library, "QIV_Thread_GetSelfId", &g_getSelfId);
  if (g_getSelfId() == 0) Fail("the main thread has no id");
  id = create(CountRun, &runs, 0, 0, 0, 0);
  if (id == 0xFFFFFFFFu) Fail("QIV_Thread_Create failed");
  if (wait(id) != 0 || runs != 1) Fail("the thread has not run");
}

/* Ends the pool with something still allocated. */
static void UseGlobalPool(void* library) {
  PoolInit init;
  PoolAlloc alloc;
  Function fini;
  FindFunction(library, "QIV_FiniMemoryPool_Inter", &fini);
  FindFunction(library, "QIV_MemoryPoolGlobal_Init", &init);
  FindFunction(library, "QIV_MemoryPoolGlobal_Alloc", &alloc);
  if (init(0) != 1) Fail("QIV_MemoryPoolGlobal_Init failed");
  if (alloc(100) == NULL) Fail("QIV_MemoryPoolGlobal_Alloc failed");
  if (fini() != 0) Fail("QIV_FiniMemoryPool_Inter failed");
}

/* Leaves the service running, with a line that is just written. */
static void UseLog(void* library) {
  Log writeLog;
  EnableTarget enable;
  FindFunction(library, "WriteLog", &writeLog);
  FindFunction(library, "EnableTarget", &enable);
  if (enable(1, NULL, 0, 0) != 0) Fail("EnableTarget failed");
  if (writeLog(1, "f", 1, "x") != 0) Fail("WriteLog failed");
}

static void RunRounds(const char* path, const char* mode, int rounds) {
  int round;
  for (round = 0; round < rounds; ++round) {
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) Fail(dlerror());
    LookUpLibuuid(library);
    if (strcmp(mode, "start") == 0) StartAndStop(library);
    if (strcmp(mode, "threads") == 0) RunThread(library);
    if (strcmp(mode, "pool") == 0) UseGlobalPool(library);
    if (strcmp(mode, "log") == 0) UseLog(library);
    if (dlclose(library) != 0) Fail(dlerror());
    if (dlopen(path, RTLD_NOW | RTLD_NOLOAD) != NULL) Fail("the library stays after dlclose()");
  }
}

/* A thread that has been joined may still be listed for a moment, so a difference gets time. */
static int EndsAs(const Usage* before) {
  const struct timespec tenMilliseconds = {0, 10 * 1000 * 1000};
  Usage after = Measure();
  int attempt;
  for (attempt = 0; attempt < kSettleAttempts && !IsSame(before, &after); ++attempt) {
    nanosleep(&tenMilliseconds, NULL);
    after = Measure();
  }
  Print("before", before);
  Print("after", &after);
  return IsSame(before, &after);
}

int main(int argc, char** argv) {
  Usage before;
  int freeKeys;
  if (argc != 3) Fail("usage: unload_test LIBRARY load|start|threads|pool|log");
  RunRounds(argv[1], argv[2], kWarmUpRounds);
  (void)Measure();
  freeKeys = CountFreeKeys();
  before = Measure();

  RunRounds(argv[1], argv[2], kRounds);

  if (!EndsAs(&before)) Fail("loading and unloading leaves something behind");
  if (CountFreeKeys() != freeKeys) Fail("loading and unloading uses up thread-local keys");
  return 0;
}
