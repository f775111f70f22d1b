// Sets the preferred address family for as long as an object of this lives.
#ifndef QIV_TESTS_SUPPORT_PREFERRED_FAMILY_H
#define QIV_TESTS_SUPPORT_PREFERRED_FAMILY_H

#include <qiv/library.h>

namespace qiv::test {

class PreferredFamily {
 public:
  explicit PreferredFamily(int family) : m_saved(g_Af) { g_Af = family; }
  ~PreferredFamily() { g_Af = m_saved; }
  PreferredFamily(const PreferredFamily&) = delete;
  PreferredFamily& operator=(const PreferredFamily&) = delete;

 private:
  int m_saved;
};

}  // namespace qiv::test

#endif
