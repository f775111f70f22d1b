/* An outside C program: the library and libuuid's functions through it. */
#include <qiv/qiv.h>
#include <stdio.h>
#include <uuid/uuid.h>

int main(void) {
  uuid_t made;
  uuid_t read;
  char text[37];
  if (QIV_Init() != QIV_OK) return 1;
  uuid_generate(made);
  uuid_unparse(made, text);
  if (uuid_parse(text, read) != 0 || uuid_compare(made, read) != 0) return 2;
  if (QIV_SetLastError(7) != QIV_OK || QIV_GetLastError() != 7) return 3;
  if (QIV_Fini() != 0) return 4;
  puts(pVersion);
  return 0;
}
