// Identifiers of 128 bits.
#include <qiv/system.h>
#include <uuid/uuid.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "base/no_cancellation.h"

static_assert(sizeof(QIV_UUID_T) == 16 && sizeof(uuid_t) == 16, "the same bytes");
static_assert(offsetof(QIV_UUID_T, Data2) == 4, "Data1 has 32 bits");
static_assert(offsetof(QIV_UUID_T, Data3) == 6, "Data2 has 16 bits");
static_assert(offsetof(QIV_UUID_T, Data4) == 8, "Data3 has 16 bits");

namespace {

constexpr int kTextLength = 36;

}  // namespace

extern "C" {

int QIV_GetUUID(QIV_UUID_T* out) noexcept {
  if (out == nullptr) return QIV_ERROR;
  const qiv::base::NoCancellation noCancellation;
  uuid_t bytes;
  uuid_generate(bytes);
  std::memcpy(out, bytes, sizeof bytes);
  return QIV_OK;
}

int QIV_StringFromUUID(const QIV_UUID_T* id, char* buf, int size) noexcept {
  if (id == nullptr || buf == nullptr) return QIV_ERROR;
  // Kept: 36 bytes are accepted, though the NUL then takes the place of the last digit.
  if (size < kTextLength) return QIV_ERROR;
  std::snprintf(buf, static_cast<std::size_t>(size),
                "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", id->Data1, id->Data2, id->Data3,
                id->Data4[0], id->Data4[1], id->Data4[2], id->Data4[3], id->Data4[4], id->Data4[5],
                id->Data4[6], id->Data4[7]);
  return QIV_OK;
}

}  // extern "C"
