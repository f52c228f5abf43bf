// What the user named, in the catalogue of an open database.
//
// Functions that return a string return what is wrong, for a message, or an empty text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "libtrend/log.h"

/// Opens the database at `path` for reading.
[[nodiscard]] std::string open_log(toolkit::trend::CLog& log, const std::string& path);

/// The same for a database that may be damaged, of which queries then leave out what they can't
/// read.
[[nodiscard]] std::string open_damaged_log(toolkit::trend::CLog& log, const std::string& path);

/// Finds the devices with the paths `names`, in this order, or all devices if `names` is empty.
[[nodiscard]] std::string select_devices(toolkit::trend::CLog& log,
                                         const std::vector<std::string>& names,
                                         std::vector<toolkit::trend::CDeviceProperties>& devices);

/// Finds the parameters of `device` with the paths `names`, in this order, or all if `names` is
/// empty, in the order in which trendcsv prints them.
[[nodiscard]] std::string select_params(toolkit::trend::CLog& log,
                                        const toolkit::trend::CDeviceProperties& device,
                                        const std::vector<std::string>& names,
                                        std::vector<toolkit::trend::CParamProperties>& params);

/// Finds the intervals of `minutes`, where 0 stands for the shortest one, or all if `minutes` is
/// empty.
[[nodiscard]] std::string select_periods(toolkit::trend::CLog& log,
                                         const std::vector<std::uint32_t>& minutes,
                                         std::vector<toolkit::trend::CPeriodProperties>& periods);

/// Sets `names` to one name for each parameter of `selection`: its display name with
/// `use_display_names`, and otherwise its path. If the display names can't be read, prints a
/// message, takes the paths, and returns false.
bool name_params(const toolkit::trend::CDeviceParams& selection, bool use_display_names,
                 std::vector<std::string>& names);
