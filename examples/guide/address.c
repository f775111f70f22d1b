/* An access list: tells which clients come from a network that is let in. */
#include <qiv/address.h>
#include <stdio.h>
#include <string.h>

typedef struct Network {
  const char* address;
  unsigned int bits;
} Network;

typedef struct Client {
  const char* address;
  int isExpected;
} Client;

static const Network kNetworks[] = {{"10.0.0.0", 8}, {"192.168.7.0", 24}, {"2001:db8::", 32}};

static const Client kClients[] = {{"10.1.2.3", 1},
                                  {"::ffff:192.168.7.20", 1}, /* IPv4 on a dual socket */
                                  {"192.168.8.1", 0},
                                  {"2001:DB8:5::1", 1},
                                  {"2001:db9::1", 0}};

static int StartsAlike(const unsigned char* a, const unsigned char* b, unsigned int bits) {
  const unsigned int rest = bits % 8;
  if (memcmp(a, b, bits / 8) != 0) return 0;
  return rest == 0 || (a[bits / 8] ^ b[bits / 8]) >> (8 - rest) == 0;
}

static int IsInside(const QIV_ADDR_INFO_T* client, const Network* network) {
  unsigned char start[16];
  const int family = strchr(network->address, ':') != NULL ? AF_INET6 : AF_INET;
  if (client->family != family || QIV_InetPton(network->address, start) != QIV_OK) return 0;
  return StartsAlike((const unsigned char*)&client->address, start, network->bits);
}

/* The text of an IPv4-mapped address is the IPv4 address alone, so reading it back unmaps it. */
static int IsLetIn(const QIV_ADDR_T* peer) {
  char text[64];
  QIV_ADDR_T plain;
  QIV_ADDR_INFO_T client;
  size_t i;
  if (QIV_GetAddrStringEx(peer, text, sizeof text) == NULL) return 0;
  if (QIV_MakeAddrByString(AF_INET6, text, QIV_GetAddrPort(peer), &plain) != QIV_OK) return 0;
  if (QIV_GetAddrInfo(&plain, &client) != QIV_OK) return 0;
  for (i = 0; i < sizeof kNetworks / sizeof kNetworks[0]; ++i) {
    if (IsInside(&client, &kNetworks[i])) return 1;
  }
  return 0;
}

int main(void) {
  int isRight = 1;
  size_t i;
  for (i = 0; i < sizeof kClients / sizeof kClients[0]; ++i) {
    QIV_ADDR_T peer; /* as QIV_Accept() or QIV_RecvFrom() fills it */
    int isIn;
    if (QIV_MakeAddrByString(AF_INET6, kClients[i].address, 40000, &peer) != QIV_OK) return 1;
    isIn = IsLetIn(&peer);
    printf("%-20s %s\n", kClients[i].address, isIn ? "let in" : "refused");
    if (isIn != kClients[i].isExpected) isRight = 0;
  }
  return isRight ? 0 : 1;
}
