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

/* The second is IPv4 on a dual socket; the third, another address, has the same text. */
static const Client kClients[] = {{"10.1.2.3", 1},       {"::ffff:192.168.7.20", 1},
                                  {"::192.168.7.20", 0}, {"192.168.8.1", 0},
                                  {"2001:DB8:5::1", 1},  {"2001:db9::1", 0}};

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

/* Makes the IPv4 address of an IPv4-mapped one: ten zeros, ff, ff, and the four bytes. */
static void Unmap(QIV_ADDR_INFO_T* client) {
  static const unsigned char kMapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
  unsigned char* const bytes = client->address.ipv6;
  if (client->family != AF_INET6 || memcmp(bytes, kMapped, sizeof kMapped) != 0) return;
  client->family = AF_INET;
  memcpy(bytes, bytes + sizeof kMapped, 4);
}

static int IsLetIn(const QIV_ADDR_T* peer) {
  QIV_ADDR_INFO_T client;
  size_t i;
  if (QIV_GetAddrInfo(peer, &client) != QIV_OK) return 0;
  Unmap(&client);
  for (i = 0; i < sizeof kNetworks / sizeof kNetworks[0]; ++i) {
    if (IsInside(&client, &kNetworks[i])) return 1;
  }
  return 0;
}

/* Fills a record as QIV_Accept() or QIV_RecvFrom() does. */
static int MakePeer(const char* text, QIV_ADDR_T* peer) {
  QIV_ADDR_INFO_T read;
  if (QIV_InetPton(text, &read.address) != QIV_OK) return QIV_ERROR;
  if (strchr(text, ':') != NULL) return QIV_MakeAddr6ByInt(read.address.ipv6, 40000, peer);
  return QIV_MakeAddr4ByInt(read.address.ipv4, 40000, peer);
}

int main(void) {
  int isRight = 1;
  size_t i;
  for (i = 0; i < sizeof kClients / sizeof kClients[0]; ++i) {
    QIV_ADDR_T peer;
    if (MakePeer(kClients[i].address, &peer) != QIV_OK) return 1;
    const int isIn = IsLetIn(&peer);
    printf("%-20s %s\n", kClients[i].address, isIn ? "let in" : "refused");
    if (isIn != kClients[i].isExpected) isRight = 0;
  }
  return isRight ? 0 : 1;
}
