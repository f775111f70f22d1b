/**
 * @file
 * Everything: brings the header of each family.
 */
#ifndef QIV_QIV_H
#define QIV_QIV_H

#include <qiv/adapter.h>
#include <qiv/address.h>
#include <qiv/alarm_clock.h>
#include <qiv/aligned_memory.h>
#include <qiv/async_io.h>
#include <qiv/async_io_legacy.h>
#include <qiv/atomic.h>
#include <qiv/condition.h>
#include <qiv/cycle_buffer.h>
#include <qiv/debug.h>
#include <qiv/dso.h>
#include <qiv/error.h>
#include <qiv/event.h>
#include <qiv/file.h>
#include <qiv/hash.h>
#include <qiv/library.h>
#include <qiv/lockfree_queue.h>
#include <qiv/log.h>
#include <qiv/memory_block.h>
#include <qiv/memory_pool.h>
#include <qiv/memory_pool_ex.h>
#include <qiv/memory_pool_global.h>
#include <qiv/message_queue.h>
#include <qiv/mutex.h>
#include <qiv/poll.h>
#include <qiv/refobj.h>
#include <qiv/semaphore.h>
#include <qiv/shared_mutex.h>
#include <qiv/socket.h>
#include <qiv/socket_classes.h>
#include <qiv/string.h>
#include <qiv/system.h>
#include <qiv/thread.h>
#include <qiv/thread_pool.h>
#include <qiv/thread_pool_flex.h>
#include <qiv/time.h>
#include <qiv/time_classes.h>
#include <qiv/timer.h>
#include <qiv/trace_info.h>
#include <qiv/types.h>

#endif
