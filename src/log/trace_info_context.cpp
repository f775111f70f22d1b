// One thread's copy of a trace record, and its reference count.
//
// The count and the "destroyed" flag are guarded by the object's own mutex. The texts and flags
// belong to one thread and have no lock.
#include <qiv/trace_info.h>

#include <cstddef>
#include <cstring>

static_assert(sizeof(QIV_TRACEINFO) == 197, "the record crosses the boundary");
static_assert(offsetof(QIV_TRACEINFO, firstText) == 0, "the record crosses the boundary");
static_assert(offsetof(QIV_TRACEINFO, secondText) == 65, "the record crosses the boundary");
static_assert(offsetof(QIV_TRACEINFO, thirdText) == 130, "the record crosses the boundary");
static_assert(offsetof(QIV_TRACEINFO, firstFlag) == 195, "the record crosses the boundary");
static_assert(offsetof(QIV_TRACEINFO, secondFlag) == 196, "the record crosses the boundary");

namespace {

constexpr std::size_t kMaxTextLength = QIV_TRACE_TEXT_SIZE - 1;

void ReadText(std::string* text, const char (&field)[QIV_TRACE_TEXT_SIZE]) {
  text->assign(field, strnlen(field, kMaxTextLength));
}

void WriteText(char (&field)[QIV_TRACE_TEXT_SIZE], const std::string& text) {
  std::memcpy(field, text.data(), text.size());
}

}  // namespace

shared_object::shared_object() noexcept : m_count(0), m_destroyed(false) {}
shared_object::~shared_object() = default;

void shared_object::addReference() noexcept {
  m_mutex.lock();
  ++m_count;
  m_mutex.unlock();
}

void shared_object::releaseReference() noexcept {
  m_mutex.lock();
  --m_count;
  const bool destroy = m_count == 0 && !m_destroyed;
  if (destroy) m_destroyed = true;
  m_mutex.unlock();
  if (destroy) delete this;
}

namespace qiv {

CTraceInfo_context::CTraceInfo_context() : m_firstFlag(0), m_secondFlag(0) {
  m_firstText.reserve(kMaxTextLength);
  m_secondText.reserve(kMaxTextLength);
  m_thirdText.reserve(kMaxTextLength);
}

CTraceInfo_context::~CTraceInfo_context() = default;

void CTraceInfo_context::assign(const QIV_TRACEINFO& record) noexcept {
  ReadText(&m_firstText, record.firstText);
  ReadText(&m_secondText, record.secondText);
  ReadText(&m_thirdText, record.thirdText);
  m_firstFlag = record.firstFlag;
  m_secondFlag = record.secondFlag;
}

void CTraceInfo_context::copyTo(QIV_TRACEINFO* record) const noexcept {
  *record = QIV_TRACEINFO();
  WriteText(record->firstText, m_firstText);
  WriteText(record->secondText, m_secondText);
  WriteText(record->thirdText, m_thirdText);
  record->firstFlag = m_firstFlag;
  record->secondFlag = m_secondFlag;
}

}  // namespace qiv
