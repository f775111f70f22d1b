// Makes every start of a thread from the objects of this program fail with EAGAIN, whichever thread
// asks. Threads started inside shared libraries, as those of std::thread, are not reached.
#ifndef QIV_TESTS_SUPPORT_FAILING_THREAD_START_H
#define QIV_TESTS_SUPPORT_FAILING_THREAD_START_H

namespace qiv::test {

/** While one of these lives, no thread can be started. */
class FailingThreadStart {
 public:
  FailingThreadStart() noexcept;
  ~FailingThreadStart();
  FailingThreadStart(const FailingThreadStart&) = delete;
  FailingThreadStart& operator=(const FailingThreadStart&) = delete;

  /** How many starts have failed since it was made. */
  [[nodiscard]] static int Count() noexcept;
};

}  // namespace qiv::test

#endif
