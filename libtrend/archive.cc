#include "libtrend/archive.h"

namespace toolkit::trend {

int create_archive(const std::string& /*url*/, const ArchiveOptions& /*options*/,
                   std::string& error) {
  error = "this build has no support for archives";
  return -1;
}

}  // namespace toolkit::trend
