// Lists of what a database has, as text.
#pragma once

#include <string>
#include <vector>

#include "trendtool/list/contents.h"

/// Returns the names of the devices or, with `is_one_device`, of the parameters of the first one,
/// each on a line.
[[nodiscard]] std::string list_names(const std::vector<DeviceContents>& contents,
                                     bool is_one_device);

/// Returns a table for people: of all devices or, with `is_one_device`, of the parameters and the
/// intervals of the first one. Times are in UTC with `use_utc`, and otherwise in local time.
[[nodiscard]] std::string list_as_table(const std::vector<DeviceContents>& contents,
                                        bool is_one_device, bool use_utc);

/// Returns the same as CSV.
[[nodiscard]] std::string list_as_csv(const std::vector<DeviceContents>& contents,
                                      bool is_one_device, bool use_utc);

/// Returns all of `contents` as one JSON object.
[[nodiscard]] std::string list_as_json(const std::vector<DeviceContents>& contents, bool use_utc);
