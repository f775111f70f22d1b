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

  QIV_TRACEINFO m_traceInfo;  ///< of the thread that pushed the object last
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
  /** Takes a reference to the other's object. */
  cshared_ptr(const cshared_ptr& other) noexcept : m_object(other.m_object) { addRef(); }
  /** Takes over the other's reference and leaves it null. */
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

  /** Points to the other's object from now on and drops the reference held before. */
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

  /** @return the object, without a reference of its own; or null */
  Object* get() const noexcept { return m_object; }
  /** @return the object; the pointer must not be null */
  Object* operator->() const noexcept { return m_object; }
  /** @return the object; the pointer must not be null */
  Object& operator*() const noexcept { return *m_object; }
  /** @return whether the pointer has an object */
  explicit operator bool() const noexcept { return m_object != nullptr; }

 private:
  void addRef() noexcept {
    if (m_object != nullptr) m_object->addRef();
  }

  Object* m_object;
};

/** @name Comparison of pointers
 *  Pointers are equal when they point to one object, or to none. Any mix of classes compares whose
 *  plain pointers do, also with a plain pointer on either side. */
/** @{ */
/** @return whether both point to one object, or to none */
template <class A, class B>
bool operator==(const cshared_ptr<A>& a, const cshared_ptr<B>& b) noexcept {
  return a.get() == b.get();
}
/** @return whether they point to different objects, or one alone to none */
template <class A, class B>
bool operator!=(const cshared_ptr<A>& a, const cshared_ptr<B>& b) noexcept {
  return a.get() != b.get();
}

/** @return whether both point to one object, or to none */
template <class A, class B>
bool operator==(const cshared_ptr<A>& a, const B* b) noexcept {
  return a.get() == b;
}
/** @return whether they point to different objects, or one alone to none */
template <class A, class B>
bool operator!=(const cshared_ptr<A>& a, const B* b) noexcept {
  return a.get() != b;
}
/** @return whether both point to one object, or to none */
template <class A, class B>
bool operator==(const A* a, const cshared_ptr<B>& b) noexcept {
  return a == b.get();
}
/** @return whether they point to different objects, or one alone to none */
template <class A, class B>
bool operator!=(const A* a, const cshared_ptr<B>& b) noexcept {
  return a != b.get();
}

/** @return whether the pointer is null */
template <class Object>
bool operator==(const cshared_ptr<Object>& pointer, decltype(nullptr)) noexcept {
  return !pointer;
}
/** @return whether the pointer has an object */
template <class Object>
bool operator!=(const cshared_ptr<Object>& pointer, decltype(nullptr)) noexcept {
  return static_cast<bool>(pointer);
}
/** @return whether the pointer is null */
template <class Object>
bool operator==(decltype(nullptr), const cshared_ptr<Object>& pointer) noexcept {
  return !pointer;
}
/** @return whether the pointer has an object */
template <class Object>
bool operator!=(decltype(nullptr), const cshared_ptr<Object>& pointer) noexcept {
  return static_cast<bool>(pointer);
}
/** @} */

}  // namespace qiv

#endif  // __cplusplus

#endif
