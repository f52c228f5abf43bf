// trendtool init: makes a new, empty database.
#pragma once

#include "trendtool/common/command.h"

/// Adds the subcommand `init`, see command.h of common.
void add_init_command(CLI::App& app, Action& action);
