// The client for systems without a CDS: it never connects.
#include "libcds/cds.h"

pcd_connection* pcd_init(const char* /*server*/, int /*flag*/) { return nullptr; }

void pcd_close(pcd_connection* /*handle*/) {}

int toolkit::CCds::get_leaves(const std::vector<std::string>& /*paths*/,
                              std::vector<api_status_t>& /*statuses*/,
                              std::vector<CElement>& /*elements*/,
                              std::vector<element_property_t>& /*properties*/) {
  return -1;
}
