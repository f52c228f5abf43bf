// trendtool list: what is in a database.
#pragma once

#include "trendtool/common/command.h"

/// Adds the subcommand `list`, see command.h of common.
void add_list_command(CLI::App& app, Action& action);
