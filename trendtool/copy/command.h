// trendtool copy: brings what is new in one database into another.
#pragma once

#include "trendtool/common/command.h"

/// Adds the subcommand `copy`, see command.h of common.
void add_copy_command(CLI::App& app, Action& action);
