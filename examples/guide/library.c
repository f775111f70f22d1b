// Starts and stops the library: the program for its whole life, a component for itself within it.
#include <qiv/qiv.h>
#include <stdio.h>
#include <sys/socket.h>

static const unsigned int kNeededVersion = 0x01010000;  // 1.1

static int CheckVersion(void) {
  const unsigned int version = QIV_GetQIVVersion();
  printf("interface %u.%u.%u.%u, %s\n", version >> 24, version >> 16 & 0xFF, version >> 8 & 0xFF,
         version & 0xFF, pVersion);
  return version >= kNeededVersion;
}

static const char* NameOfPreferredFamily(void) {
  switch (g_Af) {
    case AF_INET:
      return "IPv4";
    case AF_INET6:
      return "IPv6";
    case QIV_AF_INET6_DUAL:
      return "IPv6 that accepts IPv4 too";
    default:
      return "none: the host has no address";
  }
}

// A component cannot know whether the program has started the library: it counts one start more.
static int UseComponent(void) {
  if (QIV_Init() != QIV_OK) return 0;
  printf("preferred family: %s\n", NameOfPreferredFamily());
  QIV_Fini();
  return 1;
}

int main(void) {
  int isRight = CheckVersion();  // needs no start
  if (QIV_Init() != QIV_OK) {
    fprintf(stderr, "library: cannot start\n");
    return 1;
  }
  isRight = UseComponent() && isRight;
  // The component's stop was not the last one: the last error still works.
  isRight = QIV_SetLastError(7) == QIV_OK && QIV_GetLastError() == 7 && isRight;
  QIV_Fini();
  // Now it does not.
  isRight = QIV_SetLastError(7) == QIV_ERROR && isRight;
  printf("%s\n", isRight ? "started and stopped" : "something is wrong");
  return isRight ? 0 : 1;
}
