// trendtool remove: takes devices, series and rows out of a database.
#pragma once

#include "trendtool/common/command.h"

/// Adds the subcommand `remove`, see command.h of common.
void add_remove_command(CLI::App& app, Action& action);
