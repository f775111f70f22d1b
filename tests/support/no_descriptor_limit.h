// Lets the process have no descriptors at all: what is open stays usable, but poll() fails with
// EINVAL and nothing new can be opened.
#ifndef QIV_TESTS_SUPPORT_NO_DESCRIPTOR_LIMIT_H
#define QIV_TESTS_SUPPORT_NO_DESCRIPTOR_LIMIT_H

#include <sys/resource.h>

#include <stdexcept>

namespace qiv::test {

class NoDescriptorLimit {
 public:
  NoDescriptorLimit() {
    if (getrlimit(RLIMIT_NOFILE, &m_saved) != 0) throw std::runtime_error("no limit to read");
    rlimit none = m_saved;
    none.rlim_cur = 0;
    if (setrlimit(RLIMIT_NOFILE, &none) != 0) throw std::runtime_error("no limit to set");
  }
  ~NoDescriptorLimit() { setrlimit(RLIMIT_NOFILE, &m_saved); }
  NoDescriptorLimit(const NoDescriptorLimit&) = delete;
  NoDescriptorLimit& operator=(const NoDescriptorLimit&) = delete;

 private:
  rlimit m_saved = {};
};

}  // namespace qiv::test

#endif
