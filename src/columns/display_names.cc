#include "columns/display_names.h"

#include <cstddef>
#include <cstdio>
#include <map>

#include "libcds/cds.h"

namespace {

using toolkit::CElement;

constexpr const char* LEAF_NAME = "/DisplayName";

/// The paths of leaves in the CDS, each with the display text that it holds.
using LeafTable = std::map<std::string, std::string>;

/// The levels of a parameter's path, each as the path from the device to that level: for "a/b" they
/// are "a" and "a/b". Empty components are levels too: "a//b" has three. But a '/' at the end does
/// not start one more level.
std::vector<std::string> split_levels(const std::string& path) {
  std::vector<std::string> levels;
  for (std::size_t position = 0; position < path.size();) {
    std::size_t end = path.find('/', position);
    if (end == std::string::npos) end = path.size();
    levels.push_back(path.substr(0, end));
    position = end + 1;
  }
  return levels;
}

/// Sets the display text of every leaf of `leaves`, whose paths start with `folder`. For a leaf
/// that the CDS does not have, or that is not a text, it is the path of the leaf's level.
DisplayNames read_leaves(const std::string& folder, LeafTable& leaves) {
  std::vector<std::string> paths;
  paths.reserve(leaves.size());
  for (const auto& [path, text] : leaves) paths.push_back(path);

  toolkit::CCds cds(1);
  if (cds.handle() == nullptr) return DisplayNames::NO_CONNECTION;
  std::vector<toolkit::api_status_t> statuses;
  std::vector<CElement> elements;
  std::vector<toolkit::element_property_t> properties;
  if (cds.get_leaves(paths, statuses, elements, properties) != 0) return DisplayNames::NOT_READ;
  std::size_t index = 0;
  for (auto& [path, text] : leaves) {
    if (statuses[index] == toolkit::API_STATUS_OK &&
        elements[index].type() == toolkit::ELEMENT_TYPE_TEXT) {
      elements[index].to_string(text);
    } else {
      text = path.substr(folder.size(), path.rfind('/') - folder.size());
    }
    ++index;
  }
  return DisplayNames::FOUND;
}

}  // namespace

DisplayNames read_display_names(const toolkit::trend::CDeviceParams& selection,
                                std::vector<std::string>& names) {
  names.clear();
  const std::string folder = selection.device.path + "/";
  LeafTable leaves;
  std::vector<std::vector<std::string>> leaf_paths;
  for (const auto& param : selection.params) {
    leaf_paths.push_back(split_levels(param.path));
    for (std::string& level : leaf_paths.back()) {
      level.insert(0, folder).append(LEAF_NAME);
      leaves.try_emplace(level);
    }
  }
  const DisplayNames result = read_leaves(folder, leaves);
  if (result != DisplayNames::FOUND) return result;
  // Deliberate: a comma in a display text stays, although no field of the output is quoted.
  for (const std::vector<std::string>& levels : leaf_paths) {
    std::string& name = names.emplace_back();
    for (const std::string& leaf : levels) {
      const std::string& text = leaves.at(leaf);
      if (!text.empty() && !name.empty()) name += " / ";
      name += text;
    }
  }
  return DisplayNames::FOUND;
}

int fetch_display_names(DumpContext& context, std::vector<std::string>& names) {
  switch (read_display_names(context.device_params, names)) {
    case DisplayNames::FOUND:
      return 0;
    case DisplayNames::NO_CONNECTION:
      std::fputs("Error: can't connect to CDS\n", stderr);
      break;
    case DisplayNames::NOT_READ:
      std::fputs("Warning: can't fetch display names\n", stderr);
      break;
  }
  return 1;
}
