#include "tests/support/scripted_cds.h"

#include <new>

struct pcd_connection {};

namespace {

pcd_connection the_connection;

}  // namespace

CdsScript& cds_script() {
  static CdsScript script;
  return script;
}

pcd_connection* pcd_init(const char* server, int flag) {
  cds_script().calls.emplace_back("pcd_init");
  cds_script().inits.push_back({server == nullptr, flag});
  return cds_script().is_reachable ? &the_connection : nullptr;
}

void pcd_close(pcd_connection* handle) {
  cds_script().calls.emplace_back("pcd_close");
  if (handle != &the_connection) ++cds_script().foreign_closes;
}

int toolkit::CCds::get_leaves(const std::vector<std::string>& paths,
                              std::vector<api_status_t>& statuses, std::vector<CElement>& elements,
                              std::vector<element_property_t>& properties) {
  CdsScript& script = cds_script();
  script.calls.emplace_back("get_leaves");
  script.requests.push_back(paths);
  if (!statuses.empty() || !elements.empty() || !properties.empty()) {
    script.were_replies_empty = false;
  }
  if (script.is_out_of_memory) throw std::bad_alloc();
  if (script.request_status != 0) return script.request_status;
  for (const std::string& path : paths) {
    const auto found = script.leaves.find(path);
    const ScriptedLeaf leaf = found == script.leaves.end() ? ScriptedLeaf() : found->second;
    statuses.push_back(leaf.status);
    elements.emplace_back(leaf.type, leaf.text);
    properties.emplace_back();
  }
  return 0;
}
