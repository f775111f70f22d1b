/* Prints the addresses under which a service of this host can be reached, ready to be copied. */
#define _POSIX_C_SOURCE 200809L
#include <qiv/adapter.h>
#include <qiv/library.h>
#include <stdio.h>
#include <string.h>

/* Reads an address text back as a client would: numbers only, so no name server is asked. */
static int LeadsTo(const QIV_ADDR_T* wanted, const char* text, const char* port) {
  QIV_ADDRINFO_T hints;
  QIV_ADDRINFO_T* answers = NULL;
  char found[64];
  int isRight;
  memset(&hints, 0, sizeof hints);
  hints.iFlags = AI_NUMERICHOST;
  hints.iSockType = SOCK_STREAM;
  if (QIV_GetAddressInfo(text, port, &hints, &answers) != QIV_OK || answers == NULL) return 0;
  isRight = QIV_GetAddrPort(&answers->addr) == QIV_GetAddrPort(wanted) &&
            QIV_GetAddrStringEx(&answers->addr, found, sizeof found) != NULL &&
            strcmp(found, text) == 0;
  QIV_FreeAddressInfo(answers);
  return isRight;
}

static int PrintIpv4(const QIV_IP4_NODE* node) {
  int isRight = 1;
  for (; node != NULL; node = node->pNext) {
    QIV_ADDR_T address;
    isRight = isRight && QIV_MakeAddrByString(AF_INET, node->szAddr, 8080, &address) == QIV_OK &&
              LeadsTo(&address, node->szAddr, "8080");
    printf("  http://%s:8080/\n", node->szAddr);
  }
  return isRight;
}

static int PrintIpv6(const QIV_IP6_NODE* node) {
  int isRight = 1;
  for (; node != NULL; node = node->pNext) {
    QIV_ADDR_T address;
    char text[64] = "";
    if (node->byAddr[0] == 0xFE) continue; /* link-local: of use with an interface only */
    QIV_MakeAddr6ByInt(node->byAddr, 8080, &address);
    isRight = isRight && QIV_GetAddrStringEx(&address, text, sizeof text) != NULL &&
              LeadsTo(&address, text, "8080");
    printf("  http://[%s]:8080/\n", text);
  }
  return isRight;
}

int main(void) {
  QIV_ADAPTER_INFO *adapters = NULL, *each;
  int isRight = 1;
  if (QIV_Init() != QIV_OK || QIV_GetAdapterInfo(&adapters) != QIV_OK) return 1;
  for (each = adapters; each != NULL; each = each->pNext) {
    printf("%s\n", each->szName);
    if (!PrintIpv4(each->pIpv4List) || !PrintIpv6(each->pIpv6List)) isRight = 0;
  }
  QIV_FreeAdapterInfo(adapters);
  QIV_Fini();
  return isRight ? 0 : 1;
}
