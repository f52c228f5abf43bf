// Drawing a picture of the rows of a device.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "trendtool/plot/picture.h"

/// The settings of one picture.
struct PlotOptions {
  std::string db_path;                   ///< -x
  std::string device;                    ///< -d; empty for the first device
  std::vector<std::string> params;       ///< -p; empty for all, up to a limit
  std::vector<std::uint32_t> intervals;  ///< -i; empty for all
  std::string start;                     ///< -s
  std::string end;                       ///< -e
  std::uint64_t limit = 0;               ///< -m; 0 for all rows
  bool use_utc = false;                  ///< -u
  bool use_display_names = false;        ///< -n
  bool together = false;                 ///< --together
  std::optional<PictureFormat> format;   ///< --format; otherwise by the name of the file
  int width = 0;                         ///< --size; 0 for the usual size
  int height = 0;                        ///< --size; likewise
  std::string output_path;               ///< -f; empty for standard output
};

/// Draws the picture. Returns the exit status, after a message if it is not 0.
[[nodiscard]] int run_plot(const PlotOptions& options);
