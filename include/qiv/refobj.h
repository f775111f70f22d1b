/**
 * @file
 * Reference counting inside the object: a base class, the class of the lock-free queue's elements,
 * and the pointer that counts. Exist in C++ only.
 */
#ifndef QIV_REFOBJ_H
#define QIV_REFOBJ_H

#include <qiv/atomic.h>
#include <qiv/trace_info.h>
#include <qiv/types.h>

#ifdef __cplusplus

#include <type_traits>

namespace qiv {

/**
 * An object that ends with its last reference.
 *
 * The count starts at 0: the first cshared_ptr makes it 1. References may be taken and dropped by
 * any threads at once; what a thread did before it dropped its reference is done when destroy()
 * runs. An object that is never counted may live anywhere; one that is counted must come from new
 * unless it overrides destroy().
 *
 * A constructor that takes a reference to its own object and drops it again, as a cshared_ptr does,
 * destroys the object before anybody has it: the count is back at 0. A destructor that does so
 * destroys it a second time.
 */
class QIV_API qiv_refobj {
 public:
  qiv_refobj() noexcept;
  virtual ~qiv_refobj();
  qiv_refobj(const qiv_refobj&) = delete;
  qiv_refobj& operator=(const qiv_refobj&) = delete;

  /** Takes a reference. @return the new count */
  long addRef() noexcept;
  /** Drops a reference; calls destroy() when it was the last one. @return the new count */
  long release();

  /** Deletes the object. */
  virtual void destroy();

 private:
  qiv_atomic m_count;
};

/**
 * What the lock-free queue holds: derive from it.
 *
 * The record stands first in the object. A push into the queue fills it with the trace record of
 * the thread that pushes.
 */
class QIV_API cobject : public virtual qiv_refobj {
 public:
  /** An empty record, all zero. */
  cobject() noexcept;
  ~cobject() override;

  QIV_TRACEINFO m_traceInfo;
};

/**
 * A pointer that holds a reference to its object, or is null.
 *
 * Different pointers to one object may be used by different threads at once; one pointer may not.
 *
 * @tparam Object  derived from qiv_refobj, as cobject is
 */
template <class Object>
class cshared_ptr {
 public:
  cshared_ptr() noexcept : m_object(nullptr) {}
  /** Takes a reference. Null makes a null pointer. */
  cshared_ptr(Object* object) noexcept : m_object(object) { addRef(); }
  cshared_ptr(const cshared_ptr& other) noexcept : m_object(other.m_object) { addRef(); }
  cshared_ptr(cshared_ptr&& other) noexcept : m_object(other.detach()) {}
  /** From a pointer to a derived class. */
  template <class Derived,
            class = typename std::enable_if<std::is_convertible<Derived*, Object*>::value>::type>
  cshared_ptr(const cshared_ptr<Derived>& other) noexcept : m_object(other.get()) {
    addRef();
  }
  ~cshared_ptr() {
    if (m_object != nullptr) m_object->release();
  }

  cshared_ptr& operator=(cshared_ptr other) noexcept {
    Object* const mine = m_object;
    m_object = other.m_object;
    other.m_object = mine;
    return *this;
  }

  /** Takes over a reference that somebody else has taken. */
  static cshared_ptr adopt(Object* object) noexcept {
    cshared_ptr pointer;
    pointer.m_object = object;
    return pointer;
  }
  /** Becomes null and leaves its reference to the caller. */
  Object* detach() noexcept {
    Object* const mine = m_object;
    m_object = nullptr;
    return mine;
  }

  Object* get() const noexcept { return m_object; }
  Object* operator->() const noexcept { return m_object; }
  Object& operator*() const noexcept { return *m_object; }
  explicit operator bool() const noexcept { return m_object != nullptr; }

 private:
  void addRef() noexcept {
    if (m_object != nullptr) m_object->addRef();
  }

  Object* m_object;
};

/** Pointers are equal when they point to one object, or to none. Any mix of classes compares whose
 *  plain pointers do, also with a plain pointer on either side. */
template <class A, class B>
bool operator==(const cshared_ptr<A>& a, const cshared_ptr<B>& b) noexcept {
  return a.get() == b.get();
}
template <class A, class B>
bool operator!=(const cshared_ptr<A>& a, const cshared_ptr<B>& b) noexcept {
  return a.get() != b.get();
}

template <class A, class B>
bool operator==(const cshared_ptr<A>& a, const B* b) noexcept {
  return a.get() == b;
}
template <class A, class B>
bool operator!=(const cshared_ptr<A>& a, const B* b) noexcept {
  return a.get() != b;
}
template <class A, class B>
bool operator==(const A* a, const cshared_ptr<B>& b) noexcept {
  return a == b.get();
}
template <class A, class B>
bool operator!=(const A* a, const cshared_ptr<B>& b) noexcept {
  return a != b.get();
}

template <class Object>
bool operator==(const cshared_ptr<Object>& pointer, decltype(nullptr)) noexcept {
  return !pointer;
}
template <class Object>
bool operator!=(const cshared_ptr<Object>& pointer, decltype(nullptr)) noexcept {
  return static_cast<bool>(pointer);
}
template <class Object>
bool operator==(decltype(nullptr), const cshared_ptr<Object>& pointer) noexcept {
  return !pointer;
}
template <class Object>
bool operator!=(decltype(nullptr), const cshared_ptr<Object>& pointer) noexcept {
  return static_cast<bool>(pointer);
}

}  // namespace qiv

#endif  // __cplusplus

#endif
