/* A short report on the machine: an id, the load of the processors, the memory. */
#include <qiv/system.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kIntervalMs = 100 };

typedef struct Ticks {
  double busy;
  double idle;
} Ticks;

/* Adds up the counters of all processors. */
static int ReadTicks(Ticks* ticks) {
  unsigned int size = 0, i;
  QIV_CPU_STAT_T* records;
  int result;
  ticks->busy = 0;
  ticks->idle = 0;
  QIV_GetCPUPerformance(NULL, &size); /* refused, and tells the size */
  records = malloc(size);
  if (records == NULL) return QIV_ERROR;
  result = QIV_GetCPUPerformance(records, &size);
  for (i = 0; result == QIV_OK && i < size / sizeof *records; ++i) {
    ticks->busy += (double)(records[i].ullUser + records[i].ullSystem + records[i].ullIrq);
    ticks->idle += (double)records[i].ullIdleAll;
  }
  free(records);
  return result;
}

/* The counters only ever grow, so a load is the difference of two snapshots. */
static void PrintLoad(void) {
  Ticks before, after;
  double busy, all;
  int areKnown = ReadTicks(&before) == QIV_OK;
  QIV_Sleep(kIntervalMs);
  areKnown = ReadTicks(&after) == QIV_OK && areKnown;
  busy = after.busy - before.busy;
  all = busy + after.idle - before.idle;
  printf("%d processors, ", QIV_GetCPUNumber());
  if (areKnown && all > 0) {
    printf("%.0f %% busy\n", 100 * busy / all);
  } else {
    printf("load unknown\n");
  }
}

int main(void) {
  QIV_UUID_T id;
  char text[37] = "";
  QIV_MEMORY_STATUS_T memory;
  const double gigabyte = 1024.0 * 1024 * 1024;
  if (QIV_GetUUID(&id) != QIV_OK || QIV_StringFromUUID(&id, text, sizeof text) != QIV_OK) return 1;
  printf("report %s\n", text);
  PrintLoad();
  if (QIV_GetMemoryStatus(&memory) != QIV_OK) return 1;
  printf("%.1f GiB of memory, %.1f GiB available\n", (double)memory.ullTotalPhys / gigabyte,
         (double)memory.ullAvailPhys / gigabyte);
  return strlen(text) == 36 && memory.ullAvailPhys <= memory.ullTotalPhys ? 0 : 1;
}
