// The order in which the load-time objects come and go, seen by probes of this program that stand
// between them: the library's objects are part of the program here, so the numbers interleave.
#include "base/load_order.h"

#include <gtest/gtest.h>
#include <qiv/memory_pool_global.h>
#include <qiv/thread.h>
#include <qiv/trace_info.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "log/trace_info.h"
#include "memory/memory_pool_global.h"
#include "sync/condition.h"
#include "thread/timer.h"

namespace {

/** What can be told about the library's objects at one moment. */
struct Sight {
  bool timerMutex;
  bool conditionMap;
  bool conditionLock;
  bool memoryPool;
  bool traceSingleton;
  unsigned int traceKey;
  unsigned int threadId;
};

/** An object that is not built yet is all zero. The address sanitizer objects to such a look. */
template <class Object>
__attribute__((no_sanitize_address)) bool IsBuilt(const Object& object) {
  const auto* bytes = reinterpret_cast<const volatile unsigned char*>(&object);
  for (std::size_t i = 0; i < sizeof(object); ++i) {
    if (bytes[i] != 0) return true;
  }
  return false;
}

Sight Look() QIV_NO_THREAD_SAFETY_ANALYSIS {
  return {IsBuilt(qiv::thread::g_timerTableMutex),
          IsBuilt(qiv::sync::g_mapCondAttr),
          IsBuilt(qiv::sync::g_lockCondAttr),
          IsBuilt(qiv::g_globalMemoryPool),
          IsBuilt(*qiv::qiv_tlsTraceInfoOper::instance()),
          qiv::g_qiv_store_tls_handle.load(),
          QIV_Thread_GetSelfId()};
}

// Calls must fail rather than crash once the singleton is gone: threads may still run then. The
// sanitizer of undefined behaviour objects to the attempt.
__attribute__((no_sanitize("vptr"))) int EraseTraceInfo() {
  return qiv::qiv_tlsTraceInfoOper::instance()->eraseTraceInfo();
}

bool g_reportEnd = false;

/** Looks when it is built, and says on standard error what it sees when it is destroyed. */
class Probe {
 public:
  explicit Probe(const char* name) : m_name(name), m_atBuild(Look()) {}
  ~Probe() {
    if (!g_reportEnd) return;
    const unsigned int key = qiv::g_qiv_store_tls_handle.load();
    const int erase = EraseTraceInfo();
    void* const bytes = QIV_MemoryPoolGlobal_Alloc(1);
    QIV_MemoryPoolGlobal_Free(bytes == nullptr ? this : bytes);
    std::fprintf(stderr, "%s: key %s, singleton %s, memory %s, id %s\n", m_name,
                 key == QIV_INVALID_ID ? "gone" : "there", erase == 0 ? "there" : "gone",
                 bytes == nullptr ? "gone" : "there",
                 QIV_Thread_GetSelfId() == m_atBuild.threadId ? "kept" : "lost");
  }
  Probe(const Probe&) = delete;
  Probe& operator=(const Probe&) = delete;

  const Sight& AtBuild() const { return m_atBuild; }

 private:
  const char* m_name;
  Sight m_atBuild;
};

QIV_LOAD_ORDER(QIV_LOAD_TIMER_TABLE_MUTEX - 1) Probe g_beforeTimers("before timers");
QIV_LOAD_ORDER(QIV_LOAD_TIMER_TABLE_MUTEX + 1) Probe g_afterTimers("after timers");
QIV_LOAD_ORDER(QIV_LOAD_COND_ATTR_MAP - 1) Probe g_beforeConditions("before conditions");
QIV_LOAD_ORDER(QIV_LOAD_COND_ATTR_LOCK + 1) Probe g_afterConditions("after conditions");
QIV_LOAD_ORDER(QIV_LOAD_GLOBAL_MEMORY_POOL - 1) Probe g_beforeMemoryPool("before memory pool");
QIV_LOAD_ORDER(QIV_LOAD_GLOBAL_MEMORY_POOL + 1) Probe g_afterMemoryPool("after memory pool");
QIV_LOAD_ORDER(QIV_LOAD_TRACE_SINGLETON - 1) Probe g_beforeSingleton("before singleton");
QIV_LOAD_ORDER(QIV_LOAD_TRACE_SINGLETON + 1) Probe g_betweenSingletonAndKey("between");
QIV_LOAD_ORDER(QIV_LOAD_TRACE_KEY + 1) Probe g_afterKey("after key");

TEST(LoadOrderTest, TimerTableMutexIsBuiltFirst) {
  EXPECT_FALSE(g_beforeTimers.AtBuild().timerMutex);
  EXPECT_TRUE(g_afterTimers.AtBuild().timerMutex);
  EXPECT_FALSE(g_afterTimers.AtBuild().conditionMap);
}

TEST(LoadOrderTest, ConditionMapAndLockAreBuiltTogether) {
  EXPECT_FALSE(g_beforeConditions.AtBuild().conditionMap);
  EXPECT_FALSE(g_beforeConditions.AtBuild().conditionLock);
  EXPECT_TRUE(g_afterConditions.AtBuild().conditionMap);
  EXPECT_TRUE(g_afterConditions.AtBuild().conditionLock);
}

TEST(LoadOrderTest, GlobalMemoryPoolIsBuiltAfterTheConditions) {
  EXPECT_FALSE(g_afterConditions.AtBuild().memoryPool);
  EXPECT_FALSE(g_beforeMemoryPool.AtBuild().memoryPool);
  EXPECT_TRUE(g_beforeMemoryPool.AtBuild().conditionLock);
  EXPECT_TRUE(g_afterMemoryPool.AtBuild().memoryPool);
  EXPECT_FALSE(g_afterMemoryPool.AtBuild().traceSingleton);
}

TEST(LoadOrderTest, TraceSingletonIsBuiltAfterTheConditions) {
  EXPECT_FALSE(g_afterConditions.AtBuild().traceSingleton);
  EXPECT_FALSE(g_beforeSingleton.AtBuild().traceSingleton);
  EXPECT_TRUE(g_betweenSingletonAndKey.AtBuild().traceSingleton);
}

TEST(LoadOrderTest, TraceKeyIsBuiltAfterItsSingleton) {
  EXPECT_EQ(QIV_INVALID_ID, g_beforeSingleton.AtBuild().traceKey);
  EXPECT_EQ(QIV_INVALID_ID, g_betweenSingletonAndKey.AtBuild().traceKey);
  EXPECT_NE(QIV_INVALID_ID, g_afterKey.AtBuild().traceKey);
}

TEST(LoadOrderTest, ThreadIdsNeedNoConstruction) {
  const unsigned int id = g_beforeConditions.AtBuild().threadId;
  EXPECT_NE(QIV_INVALID_ID, id);
  EXPECT_EQ(id, g_afterKey.AtBuild().threadId);
  EXPECT_EQ(id, QIV_Thread_GetSelfId());
}

TEST(LoadOrderDeathTest, ObjectsGoInReverseOrderAndTheKeyGoesFirst) {
  EXPECT_EXIT(
      {
        QIV_MemoryPoolGlobal_Init(0);
        g_reportEnd = true;
        std::exit(0);
      },
      ::testing::ExitedWithCode(0),
      "after key: key there, singleton there, memory there, id kept\n"
      "between: key gone, singleton there, memory there, id kept\n"
      "before singleton: key gone, singleton gone, memory there, id kept\n"
      "after memory pool: key gone, singleton gone, memory there, id kept\n"
      "before memory pool: key gone, singleton gone, memory gone, id kept\n"
      "after conditions: key gone, singleton gone, memory gone, id kept\n"
      "before conditions: key gone, singleton gone, memory gone, id kept\n"
      "after timers: key gone, singleton gone, memory gone, id kept\n"
      "before timers: key gone, singleton gone, memory gone, id kept\n");
}

}  // namespace
