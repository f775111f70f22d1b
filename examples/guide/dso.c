/* Uses a library that is found at run time: the program starts, and says so, where it is missing.
 */
#include <dlfcn.h>
#include <qiv/dso.h>
#include <stdio.h>
#include <string.h>

/* What the C libraries call their library of mathematics, the likeliest first; the last one holds
 * everything in one. */
static const char* const kNames[] = {"libm.so.6", "libm.so.1", "libm.so.0", "libm.so", "libc.so.1"};

static QIV_HANDLE LoadFirst(const char** name) {
  size_t i;
  for (i = 0; i < sizeof kNames / sizeof kNames[0]; ++i) {
    /* Symbols stay inside: QIV_LoadDSo() would open them to all libraries loaded later. */
    const QIV_HANDLE library = QIV_LoadDSoEx(kNames[i], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) continue;
    *name = kNames[i];
    return library;
  }
  return NULL;
}

int main(void) {
  typedef double (*Function)(double);
  Function squareRoot;
  const char* name = "";
  void* address;
  double result;
  const QIV_HANDLE library = LoadFirst(&name);
  if (library == NULL) {
    printf("no library: %s\n", dlerror());
    return 1;
  }
  address = QIV_GetDsoSym(library, "sqrt");
  if (address == NULL) return 1;
  memcpy(&squareRoot, &address, sizeof squareRoot); /* C has no cast from data to functions */
  result = squareRoot(2.25);
  printf("%s: sqrt(2.25) is %.2f\n", name, result);
  if (QIV_GetDsoSym(library, "no_such_function") != NULL) return 1;
  printf("no_such_function is not there\n");
  return result == 1.5 && QIV_UnloadDSo(library) == QIV_OK ? 0 : 1;
}
