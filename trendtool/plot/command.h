// trendtool plot: a picture of the rows of a device.
#pragma once

#include "trendtool/common/command.h"

/// Adds the subcommand `plot`, see command.h of common.
void add_plot_command(CLI::App& app, Action& action);
