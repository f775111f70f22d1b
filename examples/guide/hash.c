// Commands of a small calculator: a table leads from each name to its function.
#include <qiv/hash.h>
#include <stdio.h>

static int Add(int a, int b) { return a + b; }
static int Subtract(int a, int b) { return a - b; }
static int Multiply(int a, int b) { return a * b; }

// The names are constants, so they stay longer than any table.
static const struct Command {
  const char* name;
  int (*run)(int a, int b);
} kCommands[] = {{"add", Add}, {"subtract", Subtract}, {"multiply", Multiply}};

enum { kCommandCount = sizeof kCommands / sizeof kCommands[0] };

static struct QIV_HSEARCH_DATA* MakeTable(void) {
  struct QIV_HSEARCH_DATA* table = NULL;
  // Twice the entries, so that chains stay short.
  if (QIV_SimpleHashCreate(2 * kCommandCount, &table) != QIV_OK) return NULL;
  for (unsigned int i = 0; i < kCommandCount; ++i) {
    const struct QIV_HSEARCH_ITEM item = {kCommands[i].name, i};
    if (QIV_SimpleHashEnter(&item, table) != QIV_OK) {
      QIV_SimpleHashDestroy(table);
      return NULL;
    }
  }
  return table;
}

static int Run(struct QIV_HSEARCH_DATA* table, const char* name, int a, int b, int* result) {
  unsigned int index = 0;
  if (QIV_SimpleHashFind(name, &index, table) != QIV_OK) {
    printf("%s: no such command\n", name);
    return QIV_ERROR;
  }
  *result = kCommands[index].run(a, b);
  printf("%s %d %d: %d\n", name, a, b, *result);
  return QIV_OK;
}

int main(void) {
  struct QIV_HSEARCH_DATA* const table = MakeTable();
  if (table == NULL) return 1;
  printf("%u commands, room for %u\n", table->filled, table->size);
  int sum = 0;
  int product = 0;
  int unused = 0;
  const int isRight = Run(table, "add", 30, 12, &sum) == QIV_OK && sum == 42 &&
                      Run(table, "multiply", 6, 7, &product) == QIV_OK && product == 42 &&
                      Run(table, "divide", 84, 2, &unused) == QIV_ERROR;
  const struct QIV_HSEARCH_ITEM again = {"add", 2};  // other data: the first entry stays
  const int isRefused = QIV_SimpleHashEnter(&again, table) == QIV_ERROR;
  QIV_SimpleHashDestroy(table);
  return isRight && isRefused ? 0 : 1;
}
