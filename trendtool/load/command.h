// trendtool load: records CSV.
#pragma once

#include "trendtool/common/command.h"

/// Adds the subcommand `load`, see command.h of common.
void add_load_command(CLI::App& app, Action& action);
