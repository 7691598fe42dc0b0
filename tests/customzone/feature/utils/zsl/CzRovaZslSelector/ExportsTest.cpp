#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "ZslTestSupport.h"

using namespace zsltest;
using NSCam::CustZone::ZslPolicy::ISelector;

TEST(Exports, FactoryIsTheOnlyDefinedExport) {
  std::vector<std::string> names;
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(
      popen("nm -D --defined-only '" ZSL_PLUGIN_PATH "'", "r"), pclose);
  ASSERT_NE(pipe, nullptr);
  char line[512];
  while (std::fgets(line, sizeof(line), pipe.get()) != nullptr) {
    std::string text(line);
    text.erase(text.find_last_not_of("\r\n") + 1);
    names.push_back(text.substr(text.find_last_of(' ') + 1));
  }
  EXPECT_THAT(names, testing::ElementsAre("createCustomSelector"));
}

TEST(Exports, HostLoadsThePluginAndCreatesTheSelector) {
  LogCapture logs;
  void* handle = dlopen(ZSL_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(handle, nullptr) << dlerror();
  using Factory = void (*)(std::shared_ptr<ISelector>&);
  auto factory = reinterpret_cast<Factory>(dlsym(handle, "createCustomSelector"));
  ASSERT_NE(factory, nullptr);
  std::shared_ptr<ISelector> selector;
  factory(selector);
  ASSERT_NE(selector, nullptr);
  EXPECT_EQ(selector->getName(), "CzRovaZslSelector");
  char first[32];
  std::snprintf(first, sizeof(first), "%p", static_cast<void*>(selector.get()));
  // A second call replaces, and so destroys, the selector held before.
  factory(selector);
  EXPECT_NE(selector.get(), nullptr);
  EXPECT_EQ(selector.use_count(), 1);
  EXPECT_TRUE(logs.hasLine(std::string("CzRovaZslSelector dtor(") + first + ")"));
  SelectInputParams in = makeStill(1, tsOf(11));
  addHistory(in, 10, 12);
  EXPECT_EQ(chosen(selector->select(in)), (std::vector<std::pair<int32_t, uint32_t>>{{0, 11}}));
  selector.reset();
  dlclose(handle);
  EXPECT_EQ(logs.unifiedWith("ctor(").size(), 2u);
  EXPECT_EQ(logs.unifiedWith("dtor(").size(), 2u);
}
