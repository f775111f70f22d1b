// Names of hosts and services, asked of the system's resolver.
#include <netdb.h>
#include <qiv/adapter.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "net/address_length.h"

static_assert(sizeof(void*) != 4 || sizeof(QIV_ADDRINFO_T) == 52, "size on 32 bits");
static_assert(offsetof(QIV_ADDRINFO_T, iFlags) == 0, "order");
static_assert(offsetof(QIV_ADDRINFO_T, iFamily) == 4, "order");
static_assert(offsetof(QIV_ADDRINFO_T, iSockType) == 8, "order");
static_assert(offsetof(QIV_ADDRINFO_T, iProtocol) == 12, "order");
static_assert(offsetof(QIV_ADDRINFO_T, addr) == 16, "order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_ADDRINFO_T, szCanonName) == 44, "order");
static_assert(offsetof(QIV_ADDRINFO_T, pNext) ==
                  offsetof(QIV_ADDRINFO_T, szCanonName) + sizeof(void*),
              "order");

namespace qiv::net {
namespace {

void FreeAnswers(QIV_ADDRINFO_T* answer) noexcept {
  while (answer != nullptr) {
    QIV_ADDRINFO_T* const next = answer->pNext;
    delete[] answer->szCanonName;
    delete answer;
    answer = next;
  }
}

struct AnswerDeleter {
  void operator()(QIV_ADDRINFO_T* list) const noexcept { FreeAnswers(list); }
};
using AnswerList = std::unique_ptr<QIV_ADDRINFO_T, AnswerDeleter>;

struct SystemAnswerDeleter {
  void operator()(addrinfo* list) const noexcept { freeaddrinfo(list); }
};
using SystemAnswers = std::unique_ptr<addrinfo, SystemAnswerDeleter>;

/** Bytes of an address of a family; 0 for families that a record does not hold. */
socklen_t KnownLength(int family) noexcept {
  if (family == AF_INET) return kIpv4Length;
  return family == AF_INET6 ? kRecordLength : 0;
}
static_assert(kRecordLength == sizeof(sockaddr_in6), "a record is as long as its longest address");

addrinfo SystemHints(const QIV_ADDRINFO_T& hints, QIV_ADDR_T& address) noexcept {
  addrinfo result = {};
  result.ai_flags = hints.iFlags;
  result.ai_family = QIV_GetAf_Inner(hints.iFamily);
  result.ai_socktype = hints.iSockType;
  result.ai_protocol = hints.iProtocol;
  result.ai_canonname = hints.szCanonName;
  result.ai_addr = &address.any;
  result.ai_addrlen = KnownLength(address.family);
  return result;
}

bool CopyName(const char* name, QIV_ADDRINFO_T& out) noexcept {
  if (name == nullptr) return true;
  const std::size_t size = std::strlen(name) + 1;
  out.szCanonName = new (std::nothrow) char[size];
  if (out.szCanonName == nullptr) return false;
  std::memcpy(out.szCanonName, name, size);
  return true;
}

/** Null without memory. */
AnswerList CopyAnswer(const addrinfo& source) noexcept {
  AnswerList answer(new (std::nothrow) QIV_ADDRINFO_T());
  if (answer == nullptr || !CopyName(source.ai_canonname, *answer)) return nullptr;
  answer->iFlags = source.ai_flags;
  answer->iFamily = source.ai_family;
  answer->iSockType = source.ai_socktype;
  answer->iProtocol = source.ai_protocol;
  if (source.ai_addr != nullptr) {
    std::memcpy(&answer->addr, source.ai_addr,
                std::min(source.ai_addrlen, KnownLength(source.ai_family)));
  }
  return answer;
}

bool CopyAnswers(const addrinfo* source, AnswerList& out) noexcept {
  QIV_ADDRINFO_T* last = nullptr;
  for (; source != nullptr; source = source->ai_next) {
    AnswerList answer = CopyAnswer(*source);
    if (answer == nullptr) return false;
    if (last == nullptr) {
      out = std::move(answer);
      last = out.get();
    } else {
      last->pNext = answer.release();
      last = last->pNext;
    }
  }
  return true;
}

}  // namespace
}  // namespace qiv::net

extern "C" {

int QIV_GetHostName(char* buf, unsigned int len) noexcept {
  if (buf == nullptr) return QIV_ERROR;
  return gethostname(buf, len) == 0 ? QIV_OK : QIV_ERROR;
}

int QIV_GetAddressInfo(const char* node, const char* service, const QIV_ADDRINFO_T* hints,
                       QIV_ADDRINFO_T** res) {
  using namespace qiv::net;
  if (res == nullptr) return QIV_ERROR;
  const QIV_ADDRINFO_T givenHints = hints == nullptr ? QIV_ADDRINFO_T{} : *hints;
  QIV_ADDR_T hintedAddress = givenHints.addr;
  const addrinfo systemHints = SystemHints(givenHints, hintedAddress);
  addrinfo* found = nullptr;
  if (getaddrinfo(node, service, &systemHints, &found) != 0) return QIV_ERROR;
  const SystemAnswers systemAnswers(found);
  AnswerList answers;
  if (!CopyAnswers(found, answers)) return QIV_ERROR;
  *res = answers.release();
  return QIV_OK;
}

int QIV_FreeAddressInfo(QIV_ADDRINFO_T* res) noexcept {
  qiv::net::FreeAnswers(res);
  return QIV_OK;
}

hostent* QIV_GetAddressByName(const char* name) {
  return name == nullptr ? nullptr : gethostbyname(name);
}

}  // extern "C"
