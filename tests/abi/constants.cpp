// The constants and basic types of the interface. Programs are compiled with their values, and no
// symbol of the library changes with them, so that nothing else notices when one does.
#include <qiv/qiv.h>

#include <type_traits>

namespace {

template <class A, class B>
constexpr bool IsSame() {
  return std::is_same<A, B>::value;
}

// types.h
static_assert(IsSame<QIV_INT32, int>() && IsSame<QIV_UINT32, unsigned int>(), "QIV_INT32");
static_assert(IsSame<qiv_int64, long long>() && IsSame<qiv_uint64, unsigned long long>(),
              "64 bits");
static_assert(sizeof(int) == 4 && sizeof(long long) == 8, "the widths of the platform");
static_assert(IsSame<QIV_BOOL, int>() && IsSame<QIV_HANDLE, void*>(), "QIV_BOOL, QIV_HANDLE");
static_assert(IsSame<QIV_TIME_T, long long>(), "QIV_TIME_T");
static_assert(QIV_TRUE == 1 && QIV_FALSE == 0, "QIV_BOOL");
static_assert(QIV_OK == 0 && QIV_ERROR == -1, "results");
static_assert(QIV_INVALID_ID == 0xFFFFFFFF && QIV_INFINITE == 0xFFFFFFFF, "all bits set");
static_assert(QIV_AF_INET6_DUAL == 101 && QIV_AF_PREFERRED == 102, "address families");
static_assert(AF_INET == 2 && AF_INET6 == 10, "the platform's address families");

// event.h
static_assert(QIV_WAIT_SIGNALLED == 0, "results of waits");
static_assert(QIV_WAIT_TIMEOUT == 0x7FFFFFFF, "results of waits");
static_assert(QIV_WAIT_NULL_EVENT == 0x7FFFFFFE, "results of waits");
static_assert(QIV_WAIT_NO_PIPE == 0x7FFFFFFD, "results of waits");
static_assert(QIV_WAIT_FAILED == 0x7FFFFFFC, "results of waits");
static_assert(QIV_WAIT_MAX_ENTRIES == 128, "entries of a wait");
static_assert(QIV_EVENT_READ == 1 && QIV_EVENT_WRITE == 2, "events of a socket");
static_assert(QIV_EVENT_OUT_OF_BAND == 4 && QIV_EVENT_ACCEPT == 8, "events of a socket");
static_assert(QIV_EVENT_CONNECT == 16 && QIV_EVENT_CLOSE == 32, "events of a socket");

// file.h
static_assert(QIV_OPEN_READ == 0x1 && QIV_OPEN_WRITE == 0x2, "flags of files");
static_assert(QIV_OPEN_CREATE == 0x4 && QIV_OPEN_EXCLUSIVE == 0x40, "flags of files");
static_assert(QIV_OPEN_APPEND == 0x8 && QIV_OPEN_TRUNCATE == 0x10, "flags of files");
static_assert(QIV_OPEN_DIRECT == 0x800, "flags of files");
static_assert(QIV_PERM_OWNER_READ == 0x400 && QIV_PERM_OWNER_WRITE == 0x200, "permissions");
static_assert(QIV_PERM_OWNER_EXECUTE == 0x100 && QIV_PERM_GROUP_READ == 0x40, "permissions");
static_assert(QIV_PERM_GROUP_WRITE == 0x20 && QIV_PERM_GROUP_EXECUTE == 0x10, "permissions");
static_assert(QIV_PERM_OTHERS_READ == 0x4 && QIV_PERM_OTHERS_WRITE == 0x2, "permissions");
static_assert(QIV_PERM_OTHERS_EXECUTE == 0x1 && QIV_PERM_SET_USER_ID == 0x8000, "permissions");
static_assert(QIV_PERM_SET_GROUP_ID == 0x4000, "permissions");
static_assert(QIV_PERM_CREATE_WRITABLE == 0x2000, "permissions");
static_assert(QIV_PERM_CREATE_READ_ONLY == 0x1000, "permissions");
static_assert(QIV_FILE_TYPE_REGULAR == 512 && QIV_FILE_TYPE_DIRECTORY == 256, "types of files");
static_assert(QIV_FILE_TYPE_CHARACTER_DEVICE == 1, "types of files");
static_assert(QIV_FILE_TYPE_BLOCK_DEVICE == 128, "types of files");
static_assert(QIV_FILE_TYPE_PIPE == 32 && QIV_FILE_TYPE_SYMBOLIC_LINK == 64, "types of files");
static_assert(QIV_FILE_TYPE_SOCKET == 16 && QIV_FILE_TYPE_OTHER == 8, "types of files");

// log.h
static_assert(IsSame<log_level, int>() && IsSame<log_services, int>(), "32 bits, signed");
static_assert(LOG_DISABLE == 0 && LOG_ERR == 1 && LOG_DBG == 2 && LOG_INF == 3, "levels");
static_assert(LOG_TARGET_CONSOLE == 0 && LOG_TARGET_DEBUG == 1 && LOG_TARGET_FILE == 2, "targets");

// socket_classes.h
static_assert(qiv::qiv_sock_utils::kReadable == 0x40, "readiness");
static_assert(qiv::qiv_sock_utils::kWritable == 0x100, "readiness");

// the lengths of fields, and limits
static_assert(QIV_ADAPTER_NAME_BYTES == 260, "adapter.h");
static_assert(QIV_MAC_BYTES == 6 && QIV_MAC_FIELD_BYTES == 8, "adapter.h");
static_assert(QIV_FILE_NAME_BYTES == 264, "file.h");
static_assert(QIV_MSGQ_MAX_DATA == 8096, "message_queue.h");
static_assert(QIV_NETFLOW_NAME_BYTES == 264, "system.h");
static_assert(MAX_THREAD_PER_THREADPOOL == 512, "thread_pool.h");
static_assert(QIV_TRACE_TEXT_SIZE == 65, "trace_info.h");

// callbacks
static_assert(IsSame<QIV_ASYNC_CALLBACK, void (*)(unsigned int, unsigned int, void*)>(), "");
static_assert(IsSame<QIV_ASYNC_LEGACY_CALLBACK, void (*)(unsigned long, unsigned long, void*)>(),
              "");

}  // namespace
