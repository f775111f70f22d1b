#include <qiv/library.h>

#include <gtest/gtest.h>
#include <pthread.h>
#include <qiv/error.h>
#include <qiv/memory_pool_global.h>

#include <csignal>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "core/library.h"
#include "support/leak_check.h"

namespace {

using qiv::core::Service;
using qiv::core::StartCount;

class LibraryTest : public qiv::test::LeakCheckedTest {};

TEST_F(LibraryTest, ServicesStayUpUntilTheLastOfSeveralStarts) {
  ASSERT_EQ(0, QIV_Init());
  ASSERT_EQ(0, QIV_InitEx());
  EXPECT_EQ(2u, StartCount());
  EXPECT_EQ(0, QIV_Fini());
  EXPECT_EQ(0, QIV_SetLastError(1));
  EXPECT_EQ(0, QIV_FiniEx());
  EXPECT_EQ(0u, StartCount());
  EXPECT_EQ(-1, QIV_SetLastError(1));
}

TEST_F(LibraryTest, StopWithoutAStartIsKeptWrappingTheCount) {
  EXPECT_EQ(0, QIV_Fini());
  EXPECT_EQ(0xFFFFFFFFu, StartCount());
  EXPECT_EQ(0, QIV_Init());
  EXPECT_EQ(0u, StartCount());
  EXPECT_EQ(-1, QIV_SetLastError(1)) << "the first-start sequence has not run";
  EXPECT_EQ(0, QIV_Init());
  EXPECT_EQ(0, QIV_SetLastError(1)) << "a count of 0 starts again";
  EXPECT_EQ(0, QIV_Fini());
}

TEST_F(LibraryTest, AnUnmatchedStopTearsNothingDown) {
  ASSERT_EQ(0, QIV_InitError_Inter());  // as if a start had been lost
  ASSERT_EQ(0, QIV_Fini());
  EXPECT_EQ(0xFFFFFFFFu, StartCount());
  EXPECT_EQ(0, QIV_SetLastError(1));
  EXPECT_EQ(0, QIV_FiniError_Inter());
  EXPECT_EQ(0, QIV_Init());
}

TEST_F(LibraryTest, AFailedStartLeavesTheCountAndTheNextOneRunsTheWholeSequence) {
  std::vector<pthread_key_t> keys;  // every one, so that the last-error store cannot start
  pthread_key_t key;
  while (pthread_key_create(&key, nullptr) == 0) keys.push_back(key);
  EXPECT_EQ(1, QIV_MemoryPoolGlobal_Init(0));
  EXPECT_EQ(-1, QIV_Init());
  EXPECT_EQ(0u, QIV_MemoryPoolGlobal_Size()) << "it ends with every tear-down";
  EXPECT_EQ(0u, StartCount());
  EXPECT_EQ(-1, QIV_SetLastError(1));
  for (const pthread_key_t taken : keys) pthread_key_delete(taken);
  EXPECT_EQ(0, QIV_Init());
  EXPECT_EQ(1u, StartCount());
  EXPECT_EQ(0, QIV_SetLastError(1));
  EXPECT_EQ(0, QIV_Fini());
}

TEST_F(LibraryTest, GlobalMemoryPoolEndsWithTheLastStopThoughNoStartBeganIt) {
  ASSERT_EQ(1, QIV_MemoryPoolGlobal_Init(0));
  ASSERT_EQ(0, QIV_Init());
  ASSERT_EQ(0, QIV_Init());
  EXPECT_NE(0u, QIV_MemoryPoolGlobal_Size());
  EXPECT_EQ(0, QIV_Fini());
  EXPECT_NE(0u, QIV_MemoryPoolGlobal_Size());
  EXPECT_EQ(0, QIV_Fini());
  EXPECT_EQ(0u, QIV_MemoryPoolGlobal_Size());
}

TEST_F(LibraryTest, StartAndStopAlternateAnyNumberOfTimes) {
  for (int round = 0; round < 100; ++round) {
    ASSERT_EQ(0, QIV_Init());
    ASSERT_EQ(0, QIV_SetLastError(1));
    ASSERT_EQ(0, QIV_Fini());
    ASSERT_EQ(-1, QIV_SetLastError(1));
  }
}

TEST_F(LibraryTest, FirstStartIgnoresSigpipe) {
  std::signal(SIGPIPE, SIG_DFL);
  ASSERT_EQ(0, QIV_Init());
  struct sigaction action = {};
  ASSERT_EQ(0, sigaction(SIGPIPE, nullptr, &action));
  EXPECT_EQ(SIG_IGN, action.sa_handler);
  EXPECT_EQ(0, QIV_Fini());
}

TEST_F(LibraryTest, StartsAndStopsOfManyThreadsAreSerialised) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 500; ++round) {
        EXPECT_EQ(0, QIV_Init());
        EXPECT_EQ(0, QIV_SetLastError(3));
        EXPECT_EQ(0, QIV_Fini());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0u, StartCount());
}

TEST_F(LibraryTest, VersionAndVersionTextAreKeptIndependent) {
  EXPECT_EQ(0x0101000Cu, QIV_GetQIVVersion());
  EXPECT_STREQ("version: 1.1.15.460672", pVersion);
}

TEST_F(LibraryTest, OnlyThePreferredFamilyIsTranslated) {
  g_Af = 10;
  EXPECT_EQ(10, QIV_GetAf_Inner(102));
  for (const int family : {0, 2, 10, 101, 103, -1}) EXPECT_EQ(family, QIV_GetAf_Inner(family));
  g_Af = 0;
}

// The sequence over services of the test's own: each writes its name when it is started or stopped.
std::string g_steps;

template <char Name, int Result>
int StartStep() {
  g_steps += Name;
  return Result;
}

template <char Name>
int StopStep() {
  g_steps += Name;
  return 0;
}

TEST(StartSequenceTest, StartsInOrderAndStopsInTheSameOrder) {
  Service services[] = {{StartStep<'A', 0>, StopStep<'a'>, false},
                        {StartStep<'B', 0>, StopStep<'b'>, false}};
  g_steps.clear();
  EXPECT_TRUE(qiv::core::StartServices(std::begin(services), std::end(services)));
  EXPECT_EQ("AB", g_steps);
  qiv::core::StopServices(std::begin(services), std::end(services));
  EXPECT_EQ("ABab", g_steps);
  qiv::core::StopServices(std::begin(services), std::end(services));
  EXPECT_EQ("ABab", g_steps) << "each flag is cleared";
}

TEST(StartSequenceTest, AFailureStopsWhatStandsAndStartsNothingMore) {
  Service services[] = {{StartStep<'A', 0>, StopStep<'a'>, false},
                        {StartStep<'B', 0>, StopStep<'b'>, false},
                        {StartStep<'C', -1>, StopStep<'c'>, false},
                        {StartStep<'D', 0>, StopStep<'d'>, false}};
  g_steps.clear();
  EXPECT_FALSE(qiv::core::StartServices(std::begin(services), std::end(services)));
  EXPECT_EQ("ABCab", g_steps);
}

char g_failing = 0;

template <char Name>
int StartUnlessFailing() {
  g_steps += Name;
  return Name == g_failing ? -1 : 0;
}

TEST(StartSequenceTest, AfterTheFailureOfAnyServiceTheNextStartRunsTheWholeSequence) {
  Service services[] = {{StartUnlessFailing<'A'>, StopStep<'a'>, false},
                        {StartUnlessFailing<'B'>, StopStep<'b'>, false},
                        {StartUnlessFailing<'C'>, StopStep<'c'>, false},
                        {StartUnlessFailing<'D'>, StopStep<'d'>, false}};
  const auto stepsOfStart = [&](char failing, bool succeeds) {
    g_failing = failing;
    g_steps.clear();
    EXPECT_EQ(succeeds, qiv::core::StartServices(std::begin(services), std::end(services)));
    return g_steps;
  };
  EXPECT_EQ("A", stepsOfStart('A', false));
  EXPECT_EQ("ABa", stepsOfStart('B', false));
  EXPECT_EQ("ABCab", stepsOfStart('C', false));
  EXPECT_EQ("ABCDabc", stepsOfStart('D', false));
  EXPECT_EQ("ABCD", stepsOfStart(0, true));
}

TEST(StartSequenceTest, AServiceWithoutAStartIsNeverStopped) {
  Service services[] = {{nullptr, StopStep<'t'>, true}, {StartStep<'A', 0>, StopStep<'a'>, false}};
  g_steps.clear();
  EXPECT_TRUE(qiv::core::StartServices(std::begin(services), std::end(services)));
  qiv::core::StopServices(std::begin(services), std::end(services));
  EXPECT_EQ("Aa", g_steps);
}

}  // namespace
