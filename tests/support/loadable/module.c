/* A library that tests load. */
extern int QIV_TestModuleValue;
int QIV_TestModuleValue = 42;

int QIV_TestModuleAnswer(void);
int QIV_TestModuleAnswer(void) { return QIV_TestModuleValue; }

static int* g_unloads;

void QIV_TestModuleCountUnloads(int* unloads);
void QIV_TestModuleCountUnloads(int* unloads) { g_unloads = unloads; }

__attribute__((destructor)) static void CountUnload(void) {
  if (g_unloads != 0) ++*g_unloads;
}
