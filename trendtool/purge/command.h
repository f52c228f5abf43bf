// trendtool purge: takes old rows out of a database.
#pragma once

#include "trendtool/common/command.h"

/// Adds the subcommand `purge`, see command.h of common.
void add_purge_command(CLI::App& app, Action& action);
