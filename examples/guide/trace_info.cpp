// A request's id travels with its work: into a thread, and into an item of a thread pool.
#include <qiv/qiv.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

// The id of the work that the calling thread does; empty when it has none.
std::string CurrentId() {
  QIV_TRACEINFO record;
  qiv::qiv_tlsTraceInfoOper::instance()->getTraceInfo(&record);
  return record.firstText;
}

// Gives the calling thread an id for the life of the object.
class TraceScope {
 public:
  explicit TraceScope(const char* id) {
    QIV_TRACEINFO record = {};
    std::strncpy(record.firstText, id, sizeof record.firstText - 1);
    qiv::qiv_tlsTraceInfoOper::instance()->setTraceInfo(&record);
  }
  ~TraceScope() { qiv::qiv_tlsTraceInfoOper::instance()->eraseTraceInfo(); }
  TraceScope(const TraceScope&) = delete;
  TraceScope& operator=(const TraceScope&) = delete;
};

// Runs anywhere: nobody hands the id over.
void* Work(void* id) {
  *static_cast<std::string*>(id) = CurrentId();
  return nullptr;
}

std::string IdInThread() {
  std::string id;
  const unsigned int thread = QIV_Thread_Create(Work, &id, 0, 0, 0, 0);
  if (thread != QIV_INVALID_ID) QIV_Thread_Wait(thread);
  return id;
}

std::string IdInPool(QIV_HANDLE pool) {
  std::string id;
  const bool isTaken = QIV_ThreadPool_WorkEx(pool, Work, &id, 1) == QIV_OK;
  QIV_ThreadPool_Destroy(pool);  // waits for the item
  return isTaken ? id : "refused";
}

}  // namespace

int main() {
  if (QIV_Init() != QIV_OK) return 1;
  QIV_HANDLE pool = QIV_ThreadPool_Create(1, 1);  // its worker starts without an id
  if (pool == nullptr) return 1;
  std::string inThread;
  std::string inPool;
  {
    const TraceScope scope("request-4711");
    inThread = IdInThread();
    inPool = IdInPool(pool);
  }
  std::printf("thread: %s\npool: %s\n", inThread.c_str(), inPool.c_str());
  std::printf("afterwards: \"%s\"\n", CurrentId().c_str());
  QIV_Fini();
  return inThread == "request-4711" && inPool == inThread && CurrentId().empty() ? 0 : 1;
}
