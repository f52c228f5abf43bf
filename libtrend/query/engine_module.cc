#include "libtrend/query/engine_module.h"

#include <dlfcn.h>

#include "libtrend/version.h"

namespace toolkit::trend {

namespace {

constexpr const char* PATH = TRENDCSV_POSTGRES_MODULE;

const EngineModule* load(std::string& error) {
  void* library = dlopen(PATH, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    error = std::string("the module for archives can't be loaded: ").append(dlerror());
    return nullptr;
  }
  const auto get_module = reinterpret_cast<GetEngineModule>(dlsym(library, ENGINE_MODULE_FUNCTION));
  if (get_module == nullptr) {
    error = std::string(PATH).append(" is not a module for archives");
    return nullptr;
  }
  const EngineModule* module = get_module();
  if (std::string(module->version) == TRENDCSV_VERSION_STRING) return module;
  error = std::string(PATH).append(" is of version ").append(module->version);
  error.append(", but version ").append(TRENDCSV_VERSION_STRING).append(" is needed");
  return nullptr;
}

}  // namespace

const EngineModule* load_postgres_module(std::string& error) {
  static const EngineModule* known = nullptr;
  if (known == nullptr) known = load(error);
  return known;
}

}  // namespace toolkit::trend
