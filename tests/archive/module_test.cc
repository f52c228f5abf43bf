// What happens where the module for archives is missing or is another one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "libtrend/query/engine_module.h"
#include "libtrend/version.h"

namespace toolkit::trend {
namespace {

using testing::HasSubstr;

std::string error_of(const std::string& path) {
  std::string error;
  EXPECT_EQ(load_engine_module(path, error), nullptr);
  return error;
}

TEST(EngineModule, IsRefusedIfThereIsNone) {
  const std::string error = error_of("/nonexistent/module.so");
  EXPECT_THAT(error, HasSubstr("the module for archives can't be loaded: /nonexistent/module.so"));
}

TEST(EngineModule, IsRefusedIfItIsAnotherLibrary) {
  EXPECT_EQ(error_of("libm.so.6"), "libm.so.6 is not a module for archives");
}

TEST(EngineModule, IsRefusedIfItIsOfAnotherVersion) {
  EXPECT_EQ(error_of(OTHER_VERSION_MODULE),
            std::string(OTHER_VERSION_MODULE " is of version 0.0.1, but version ")
                .append(TRENDCSV_VERSION_STRING)
                .append(" is needed"));
}

TEST(EngineModule, IsLoadedOnce) {
  std::string error;
  const EngineModule* module = load_postgres_module(error);
  ASSERT_NE(module, nullptr) << error;
  EXPECT_EQ(load_postgres_module(error), module);
}

}  // namespace
}  // namespace toolkit::trend
