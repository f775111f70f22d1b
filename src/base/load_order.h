// The objects that are built when the library is loaded, in this order, and destroyed at unload in
// the reverse order. Each is defined in its own family's file with its number from this list.
// Nothing else in the library needs dynamic initialisation.
#ifndef QIV_BASE_LOAD_ORDER_H
#define QIV_BASE_LOAD_ORDER_H

#define QIV_LOAD_ORDER(number) __attribute__((init_priority(number)))

// Constant-initialised; it has a number only to be the last to clean up at unload, since
// destructors of the objects below may still join threads.
#define QIV_LOAD_THREAD_IDS 1001

#define QIV_LOAD_TIMER_TABLE_MUTEX 1010
#define QIV_LOAD_SOCKET_UUID_MUTEX 1020
#define QIV_LOAD_SOCKET_SEND_MUTEXES 1021
#define QIV_LOAD_SOCKET_RECV_MUTEXES 1022
#define QIV_LOAD_COND_ATTR_MAP 1030
#define QIV_LOAD_COND_ATTR_LOCK 1031
#define QIV_LOAD_COND_ATTR_END 1032
#define QIV_LOAD_GLOBAL_MEMORY_POOL 1040
#define QIV_LOAD_LIBRARY_MUTEX 1050
#define QIV_LOAD_TRACE_SINGLETON 1060
#define QIV_LOAD_LOG_SERVICE 1065  // the service itself is made at its first use
#define QIV_LOAD_TRACE_KEY 1070

#endif
