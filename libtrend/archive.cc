#include "libtrend/archive.h"

#include "libtrend/query/engine_module.h"

namespace toolkit::trend {

int create_archive(const std::string& url, const ArchiveOptions& options, std::string& error) {
  if (!is_archive_url(url)) {
    error = "an address of an archive starts with 'postgresql://'";
    return -1;
  }
  const EngineModule* module = load_postgres_module(error);
  return module != nullptr && module->create(url, options, error) ? 0 : -1;
}

}  // namespace toolkit::trend
