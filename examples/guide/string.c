// Settings: reads lines of "name = value", whatever the case of the name, and refuses bad numbers.
#include <ctype.h>
#include <qiv/string.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct Settings {
  char* host;  // from malloc()
  int port;
};

// A decimal number and nothing else. The characters are looked at first: the conversion takes an
// "a" for a digit, and tells a number that is too large by the value -1 only.
static int ReadNumber(const char* text, int* number) {
  const size_t digits = strspn(text, "0123456789");
  if (digits == 0 || text[digits] != '\0') return QIV_ERROR;
  const QIV_INT32 value = QIV_Atoi32(text);
  if (value < 0) return QIV_ERROR;
  *number = value;
  return QIV_OK;
}

static int ReadLine(const char* line, struct Settings* settings) {
  const char* const equals = QIV_Strchr(line, '=');
  if (equals == NULL) return QIV_ERROR;
  const char* value = equals + 1;
  while (isspace((unsigned char)*value)) ++value;
  int length = (int)(equals - line);
  while (length > 0 && isspace((unsigned char)line[length - 1])) --length;

  char* const name = QIV_Strndup(line, length);
  if (name == NULL) return QIV_ERROR;
  int result = QIV_ERROR;
  if (QIV_Strcasecmp(name, "port") == 0) result = ReadNumber(value, &settings->port);
  if (QIV_Strcasecmp(name, "host") == 0) {
    free(settings->host);
    settings->host = QIV_Strdup(value);
    if (settings->host != NULL) result = QIV_OK;
  }
  free(name);
  return result;
}

int main(void) {
  static const char* const kLines[] = {"Host = db.example", "PORT=5432", "port = 54a2",
                                       "port = 99999999999"};
  struct Settings settings = {NULL, 0};
  int refused = 0;
  for (int i = 0; i < 4; ++i) {
    const int result = ReadLine(kLines[i], &settings);
    if (result != QIV_OK) ++refused;
    printf("%-20s %s\n", kLines[i], result == QIV_OK ? "taken" : "refused");
  }
  char port[12];
  const int isRight = QIV_Strcmp(settings.host, "db.example") == 0 && settings.port == 5432 &&
                      refused == 2 && QIV_Itoa(port, settings.port, 16) == port;
  if (isRight) printf("%s, port %d (0x%s)\n", settings.host, settings.port, port);
  free(settings.host);
  return isRight ? 0 : 1;
}
