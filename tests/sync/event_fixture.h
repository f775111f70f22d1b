// What the tests of events share: events that close themselves, and the record behind one.
#ifndef QIV_TESTS_SYNC_EVENT_FIXTURE_H
#define QIV_TESTS_SYNC_EVENT_FIXTURE_H

#include <fcntl.h>
#include <qiv/event.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "support/captured_output.h"
#include "sync/event.h"

namespace qiv::test {

class Event {
 public:
  explicit Event(int signalled = 0) : m_handle(QIV_CreateEvent(signalled)) {}
  ~Event() {
    if (m_handle != nullptr) QIV_CloseEvent(m_handle);
  }
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  QIV_HANDLE Get() const { return m_handle; }
  sync::QIV_EVENT_T& Record() const { return *sync::RecordOf(m_handle); }
  int ReadEnd() const { return Record().iPipeFd[0].load(std::memory_order_relaxed); }
  int WriteEnd() const { return Record().iPipeFd[1].load(std::memory_order_relaxed); }
  int BytesInPipe() const {
    int bytes = -1;
    ioctl(ReadEnd(), FIONREAD, &bytes);
    return bytes;
  }

 private:
  QIV_HANDLE m_handle;
};

/** While one of these lives, a descriptor number stands for another file. */
class ReplacedDescriptor {
 public:
  ReplacedDescriptor(int descriptor, const char* path, int flags)
      : m_descriptor(descriptor), m_saved(dup(descriptor)) {
    const int file = open(path, flags);
    dup2(file, descriptor);
    close(file);
  }
  ~ReplacedDescriptor() {
    dup2(m_saved, m_descriptor);
    close(m_saved);
  }
  ReplacedDescriptor(const ReplacedDescriptor&) = delete;
  ReplacedDescriptor& operator=(const ReplacedDescriptor&) = delete;

 private:
  int m_descriptor;
  int m_saved;
};

/** What `call` writes to standard error. */
inline std::string MessagesOf(const std::function<void()>& call) {
  CapturedOutput output(STDERR_FILENO);
  call();
  return output.Stop();
}

}  // namespace qiv::test

#endif
