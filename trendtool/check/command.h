// trendtool check: whether a database can be trusted.
#pragma once

#include "trendtool/common/command.h"

/// Adds the subcommand `check`, see command.h of common.
void add_check_command(CLI::App& app, Action& action);
