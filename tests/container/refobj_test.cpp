#include <qiv/refobj.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "container/counted_element.h"

namespace {

using qiv::cobject;
using qiv::cshared_ptr;
using qiv::test::Count;
using qiv::test::CountedElement;
using qiv::test::ElementPointer;

TEST(RefObjTest, CountStartsAtZeroAndTheNewOneIsReturned) {
  cobject object;
  EXPECT_EQ(1, object.addRef());
  EXPECT_EQ(2, object.addRef());
  EXPECT_EQ(1, object.release());
}

TEST(RefObjTest, LastReleaseDeletesTheObject) {
  auto* const object = new CountedElement;
  object->addRef();
  object->addRef();
  EXPECT_EQ(1, object->release());
  EXPECT_EQ(1, CountedElement::Living());
  EXPECT_EQ(0, object->release());
  EXPECT_EQ(0, CountedElement::Living());
}

TEST(RefObjTest, DestroyDeletesThroughTheVirtualDestructor) {
  qiv::qiv_refobj* const object = new CountedElement;
  object->destroy();
  EXPECT_EQ(0, CountedElement::Living());
}

class Reused : public cobject {
 public:
  void destroy() override { ++timesDestroyed; }
  int timesDestroyed = 0;
};

TEST(RefObjTest, LastReleaseCallsTheOverriddenDestroy) {
  Reused object;
  { const cshared_ptr<Reused> pointer(&object); }
  EXPECT_EQ(1, object.timesDestroyed);
  { const cshared_ptr<Reused> pointer(&object); }
  EXPECT_EQ(2, object.timesDestroyed);
}

/** Takes and drops a reference to itself while it is made. */
class SelfReferring : public Reused {
 public:
  SelfReferring() { const cshared_ptr<Reused> pointer(this); }
};

TEST(RefObjTest, ConstructorThatDropsAReferenceToItsObjectDestroysItEarly) {
  const SelfReferring object;
  EXPECT_EQ(1, object.timesDestroyed);
}

TEST(RefObjTest, ReleaseWithoutAReferenceDestroysNothing) {
  Reused object;
  EXPECT_EQ(-1, object.release());
  EXPECT_EQ(0, object.timesDestroyed);
}

TEST(RefObjTest, TraceRecordStandsBehindTheVirtualTableAndIsZero) {
  const std::unique_ptr<cobject> object(new cobject);
  const auto* const begin = reinterpret_cast<const char*>(object.get());
  const auto* const record = reinterpret_cast<const char*>(&object->m_traceInfo);
  EXPECT_EQ(static_cast<std::ptrdiff_t>(sizeof(void*)), record - begin);
  for (std::size_t i = 0; i < sizeof(QIV_TRACEINFO); ++i) EXPECT_EQ(0, record[i]);
  EXPECT_TRUE(std::has_virtual_destructor<qiv::qiv_refobj>::value);
}

TEST(RefObjTest, ReferencesOfManyThreadsEndInOneDestroy) {
  ElementPointer shared(new CountedElement);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([mine = shared] {
      for (int round = 0; round < 10000; ++round) const ElementPointer copy(mine);
    });
  }
  shared = nullptr;
  for (std::thread& thread : threads) thread.join();
  threads.clear();
  EXPECT_EQ(0, CountedElement::Living());
}

TEST(SharedPointerTest, CopyTakesAReferenceAndDestructionDropsIt) {
  const ElementPointer pointer(new CountedElement);
  EXPECT_EQ(1, Count(pointer));
  {
    const ElementPointer copy(pointer);
    EXPECT_EQ(2, Count(pointer));
    EXPECT_TRUE(copy == pointer);
  }
  EXPECT_EQ(1, Count(pointer));
}

TEST(SharedPointerTest, MoveKeepsTheCountAndLeavesNull) {
  ElementPointer pointer(new CountedElement);
  const ElementPointer moved(std::move(pointer));
  EXPECT_EQ(1, Count(moved));
  EXPECT_EQ(nullptr, pointer.get());
  EXPECT_TRUE(pointer != moved);
}

TEST(SharedPointerTest, AssignmentDropsTheOldReferenceAlsoToItself) {
  ElementPointer pointer(new CountedElement);
  ElementPointer other(new CountedElement);
  EXPECT_EQ(2, CountedElement::Living());
  pointer = other;
  EXPECT_EQ(1, CountedElement::Living());
  EXPECT_EQ(2, Count(other));
  const ElementPointer& itself = pointer;
  pointer = itself;
  EXPECT_EQ(2, Count(other));
  pointer = nullptr;
  EXPECT_EQ(1, Count(other));
}

TEST(SharedPointerTest, NullIsCopiedAndDestroyed) {
  const ElementPointer null;
  const ElementPointer copy(null);
  EXPECT_FALSE(null);
  EXPECT_TRUE(copy == null);
}

TEST(SharedPointerTest, PointerToDerivedConverts) {
  const cshared_ptr<CountedElement> derived(new CountedElement(0, 7));
  const ElementPointer base = derived;
  EXPECT_EQ(2, Count(base));
  EXPECT_EQ(7, derived->number);
  EXPECT_EQ(static_cast<cobject*>(derived.get()), &*base);
}

TEST(SharedPointerTest, ComparesWithNullOnEitherSide) {
  const ElementPointer null;
  EXPECT_TRUE(null == nullptr);
  EXPECT_TRUE(nullptr == null);
  EXPECT_FALSE(null != nullptr);
  EXPECT_FALSE(nullptr != null);
  const ElementPointer pointer(new CountedElement);
  EXPECT_FALSE(pointer == nullptr);
  EXPECT_FALSE(nullptr == pointer);
  EXPECT_TRUE(pointer != nullptr);
  EXPECT_TRUE(nullptr != pointer);
}

TEST(SharedPointerTest, ComparesWithPointerToDerivedOnEitherSide) {
  const cshared_ptr<CountedElement> derived(new CountedElement);
  const ElementPointer same = derived;
  const ElementPointer other(new CountedElement);
  EXPECT_TRUE(derived == same);
  EXPECT_TRUE(same == derived);
  EXPECT_FALSE(derived != same);
  EXPECT_FALSE(same != derived);
  EXPECT_FALSE(derived == other);
  EXPECT_TRUE(derived != other);
}

TEST(SharedPointerTest, ComparesWithPlainPointersOnEitherSide) {
  auto* const element = new CountedElement;
  const ElementPointer pointer(element);
  const ElementPointer other(new CountedElement);
  const cobject* const base = element;
  EXPECT_TRUE(pointer == element);
  EXPECT_TRUE(element == pointer);
  EXPECT_TRUE(pointer == base);
  EXPECT_FALSE(pointer != element);
  EXPECT_FALSE(element != pointer);
  EXPECT_FALSE(other == element);
  EXPECT_FALSE(element == other);
  EXPECT_TRUE(other != element);
  EXPECT_TRUE(base != other);
  EXPECT_EQ(1, Count(pointer)) << "a comparison takes no reference";
}

TEST(SharedPointerTest, DetachAndAdoptHandAReferenceOver) {
  ElementPointer pointer(new CountedElement);
  cobject* const object = pointer.detach();
  EXPECT_FALSE(pointer);
  const ElementPointer adopted = ElementPointer::adopt(object);
  EXPECT_EQ(1, Count(adopted));
}

}  // namespace
