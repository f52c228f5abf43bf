// The columns of an export.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "libtrend/records.h"

/// One column of values: a statistic of the parameters with one path.
struct Column {
  std::string path;           ///< of the parameter
  std::size_t statistic = 0;  ///< index into `STATISTICS`
  std::string param_name;     ///< the path or the display name
  std::string name;           ///< of the column
};

/// Where the value of a column is in the rows of a device.
struct Cell {
  std::size_t column = 0;  ///< index into the columns
  std::size_t sample = 0;  ///< index into `CSnapshot::samples`
  double toolkit::trend::CSample::*member = nullptr;
};

/// A device to export.
struct ExportDevice {
  toolkit::trend::CDeviceParams selection;
  std::vector<Cell> cells;  ///< in the order of the columns; columns without values are left out
};

/// Returns the columns of all `devices`, those of the first one first, and sets their cells.
/// `names` has for each device the display names of its parameters, or nothing for their paths.
[[nodiscard]] std::vector<Column> make_columns(const std::vector<std::vector<std::string>>& names,
                                               std::vector<ExportDevice>& devices);
