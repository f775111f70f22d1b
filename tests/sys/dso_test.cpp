#include <dlfcn.h>
#include <qiv/dso.h>

#include <cstdint>
#include <string>

#include "sys/file_fixture.h"

namespace {

constexpr const char* kValue = "QIV_TestModuleValue";

class DsoTest : public qiv::test::FileFixture {
 protected:
  DsoTest() : m_path(In("module.so")) {}
  void SetUp() override {
    FileFixture::SetUp();
    // A copy, which no other test has loaded.
    ASSERT_EQ(0, QIV_CopyFile(QIV_TEST_MODULE, m_path.c_str(), 1));
  }

  const char* Module() const { return m_path.c_str(); }

  bool IsLoaded() const {
    QIV_HANDLE module = QIV_LoadDSoEx(Module(), RTLD_NOW | RTLD_NOLOAD);
    if (module == nullptr) return false;
    EXPECT_EQ(0, QIV_UnloadDSo(module));
    return true;
  }

 private:
  std::string m_path;
};

TEST_F(DsoTest, NullIsRefused) {
  EXPECT_EQ(nullptr, QIV_LoadDSo(nullptr));
  EXPECT_EQ(nullptr, QIV_LoadDSoEx(nullptr, RTLD_NOW));
  EXPECT_EQ(-1, QIV_UnloadDSo(nullptr));
  EXPECT_EQ(nullptr, QIV_GetDsoSym(nullptr, kValue));
  QIV_HANDLE module = QIV_LoadDSo(Module());
  EXPECT_EQ(nullptr, QIV_GetDsoSym(module, nullptr));
  EXPECT_EQ(0, QIV_UnloadDSo(module));
}

TEST_F(DsoTest, HandleWithAllBitsSetIsNotUnloaded) {
  EXPECT_EQ(-1, QIV_UnloadDSo(reinterpret_cast<QIV_HANDLE>(UINTPTR_MAX)));
}

TEST_F(DsoTest, WhatCannotBeLoadedGivesNull) {
  EXPECT_EQ(nullptr, QIV_LoadDSo("/no/such/library.so"));
  EXPECT_EQ(nullptr, QIV_LoadDSo("/dev/null"));
  EXPECT_NE(nullptr, dlerror());
}

TEST_F(DsoTest, FunctionsAndObjectsAreFoundAndOthersAreNull) {
  QIV_HANDLE module = QIV_LoadDSo(Module());
  ASSERT_NE(nullptr, module);
  auto* const value = static_cast<int*>(QIV_GetDsoSym(module, kValue));
  const auto answer = reinterpret_cast<int (*)()>(QIV_GetDsoSym(module, "QIV_TestModuleAnswer"));
  ASSERT_NE(nullptr, value);
  ASSERT_NE(nullptr, answer);
  EXPECT_EQ(42, answer());
  *value = 43;
  EXPECT_EQ(43, answer());
  EXPECT_EQ(nullptr, QIV_GetDsoSym(module, "QIV_TestModuleHasNoSuchSymbol"));
  EXPECT_EQ(0, QIV_UnloadDSo(module));
}

TEST_F(DsoTest, LastUnloadRunsTheDestructors) {
  QIV_HANDLE module = QIV_LoadDSo(Module());
  ASSERT_NE(nullptr, module);
  QIV_HANDLE again = QIV_LoadDSo(Module());
  ASSERT_NE(nullptr, again);
  EXPECT_EQ(QIV_GetDsoSym(module, kValue), QIV_GetDsoSym(again, kValue))
      << "loaded once, counted twice";
  int unloads = 0;
  reinterpret_cast<void (*)(int*)>(QIV_GetDsoSym(module, "QIV_TestModuleCountUnloads"))(&unloads);
  EXPECT_EQ(0, QIV_UnloadDSo(again));
  EXPECT_EQ(0, unloads);
  EXPECT_TRUE(IsLoaded());
  EXPECT_EQ(0, QIV_UnloadDSo(module));
  EXPECT_EQ(1, unloads);
  EXPECT_FALSE(IsLoaded());
}

TEST_F(DsoTest, SymbolsAreGlobalOnlyWhenTheFlagsSaySo) {
  QIV_HANDLE local = QIV_LoadDSoEx(Module(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(nullptr, local);
  EXPECT_EQ(nullptr, dlsym(RTLD_DEFAULT, kValue));
  EXPECT_EQ(0, QIV_UnloadDSo(local));
  QIV_HANDLE global = QIV_LoadDSo(Module());
  ASSERT_NE(nullptr, global);
  EXPECT_EQ(QIV_GetDsoSym(global, kValue), dlsym(RTLD_DEFAULT, kValue));
  EXPECT_NE(nullptr, dlsym(RTLD_DEFAULT, kValue));
  EXPECT_EQ(0, QIV_UnloadDSo(global));
}

TEST_F(DsoTest, FlagsReachThePlatformUnchanged) {
  EXPECT_FALSE(IsLoaded());
  EXPECT_EQ(nullptr, QIV_LoadDSoEx(Module(), 0)) << "neither now nor lazily";
  QIV_HANDLE module = QIV_LoadDSoEx(Module(), 0x102);
  EXPECT_NE(nullptr, module);
  EXPECT_EQ(0, QIV_UnloadDSo(module));
}

}  // namespace
