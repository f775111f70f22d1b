// Reference-counted objects.
//
// The count is atomic with full barriers, so the thread that drops the last reference sees what the
// others did to the object.
#include <qiv/refobj.h>

namespace qiv {

static_assert(sizeof(void*) != 4 || sizeof(qiv_refobj) == 8, "virtual table and count");
static_assert(sizeof(cshared_ptr<cobject>) == sizeof(void*), "a pointer");

qiv_refobj::qiv_refobj() noexcept : m_count(0) {}

qiv_refobj::~qiv_refobj() = default;

long qiv_refobj::addRef() noexcept { return m_count.increment(); }

long qiv_refobj::release() {
  const long count = m_count.decrement();
  if (count == 0) destroy();
  return count;
}

void qiv_refobj::destroy() { delete this; }

cobject::cobject() noexcept : m_traceInfo() {}

cobject::~cobject() = default;

}  // namespace qiv
