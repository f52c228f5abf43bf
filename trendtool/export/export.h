// Writing the rows of devices for other programs.
#pragma once

#include "trendtool/export/options.h"

/// Writes the export. Returns the exit status, after a message if it is not 0.
[[nodiscard]] int run_export(const ExportOptions& options);
