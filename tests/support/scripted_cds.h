// A CDS client that follows the script of a test and records its calls. It is linked with
// libcds/client.cc and replaces the rest of libcds.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "libcds/cds.h"

/// The result of the lookup of one leaf.
struct ScriptedLeaf {
  toolkit::api_status_t status = toolkit::API_STATUS_NOT_FOUND;
  toolkit::element_type_t type = toolkit::ELEMENT_TYPE_NONE;
  std::string text;
};

/// The arguments of one `pcd_init`.
struct InitCall {
  bool is_server_null;
  int flag;

  [[nodiscard]] bool operator==(const InitCall&) const = default;
};

/// What the CDS does, and the calls that were made.
struct CdsScript {
  bool is_reachable = true;
  int request_status = 0;
  bool is_out_of_memory = false;               ///< every request throws
  std::map<std::string, ScriptedLeaf> leaves;  ///< by path; all others are not found

  std::vector<std::string> calls;  ///< "pcd_init", "get_leaves", "pcd_close"
  std::vector<InitCall> inits;
  std::vector<std::vector<std::string>> requests;  ///< the paths of each get_leaves
  bool were_replies_empty = true;                  ///< whether every get_leaves got empty vectors
  int foreign_closes = 0;  ///< closes of handles that pcd_init did not return

  /// Makes `text` the display name of the node at `path`.
  void name_node(const std::string& path, const std::string& text) {
    leaves[path + "/DisplayName"] = {toolkit::API_STATUS_OK, toolkit::ELEMENT_TYPE_TEXT, text};
  }
};

/// The script that all clients follow. A test first assigns an empty one.
CdsScript& cds_script();
