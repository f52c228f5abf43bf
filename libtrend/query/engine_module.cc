#include "libtrend/query/engine_module.h"

#include <dlfcn.h>

#include "libtrend/version.h"

namespace toolkit::trend {

const EngineModule* load_engine_module(const std::string& path, std::string& error) {
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    error = std::string("the module for archives can't be loaded: ").append(dlerror());
    return nullptr;
  }
  const auto get_module = reinterpret_cast<GetEngineModule>(dlsym(library, ENGINE_MODULE_FUNCTION));
  if (get_module == nullptr) {
    error = path + " is not a module for archives";
    return nullptr;
  }
  const EngineModule* module = get_module();
  if (std::string(module->version) == TRENDCSV_VERSION_STRING) return module;
  error = path + " is of version " + module->version + ", but version ";
  error.append(TRENDCSV_VERSION_STRING).append(" is needed");
  return nullptr;
}

const EngineModule* load_postgres_module(std::string& error) {
  static const EngineModule* known = nullptr;
  if (known == nullptr) known = load_engine_module(TRENDCSV_POSTGRES_MODULE, error);
  return known;
}

}  // namespace toolkit::trend
