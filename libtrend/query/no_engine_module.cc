// A build without archives: for systems that link all programs statically.
#include "libtrend/query/engine_module.h"

namespace toolkit::trend {

const EngineModule* load_postgres_module(std::string& error) {
  error = "this build can't use archives on PostgreSQL";
  return nullptr;
}

}  // namespace toolkit::trend
