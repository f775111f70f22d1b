// An outside C++ program: the class layer, with type information across the library's border.
#include <qiv/qiv.h>

#include <cstdio>
#include <cstring>
#include <typeinfo>

namespace {

class Derived : public qiv::qiv_recursive_mutex {};

}  // namespace

int main() {
  QIV_Mutex mutex;
  if (mutex.Lock() != QIV_OK || mutex.Lock() != QIV_OK) return 1;
  if (mutex.Unlock() != QIV_OK || mutex.Unlock() != QIV_OK) return 2;
  const Derived derived;
  const qiv::qiv_recursive_mutex& base = derived;
  if (dynamic_cast<const Derived*>(&base) != &derived) return 3;
  if (std::strstr(typeid(qiv::qiv_recursive_mutex).name(), "qiv_recursive_mutex") == nullptr) {
    return 4;
  }
  std::puts(pVersion);
  return 0;
}
