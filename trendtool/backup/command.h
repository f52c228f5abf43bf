// trendtool backup: a copy of a database that is being recorded.
#pragma once

#include "trendtool/common/command.h"

/// Adds the subcommand `backup`, see command.h of common.
void add_backup_command(CLI::App& app, Action& action);
