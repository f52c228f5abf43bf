// A module for archives of another version of the library.
#include "libtrend/query/engine_module.h"

extern "C" __attribute__((visibility("default"))) const toolkit::trend::EngineModule*
trend_engine_module() {
  static constexpr toolkit::trend::EngineModule MODULE = {"0.0.1", nullptr, nullptr, nullptr};
  return &MODULE;
}
