#include <arpa/inet.h>
#include <qiv/adapter.h>

extern "C" {

unsigned short QIV_Htons(unsigned short value) noexcept { return htons(value); }

unsigned short QIV_Ntohs(unsigned short value) noexcept { return ntohs(value); }

unsigned int QIV_Htonl(unsigned int value) noexcept { return htonl(value); }

unsigned int QIV_Ntohl(unsigned int value) noexcept { return ntohl(value); }

}  // extern "C"
