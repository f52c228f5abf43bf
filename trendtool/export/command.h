// trendtool export: rows for other programs.
#pragma once

#include "trendtool/common/command.h"

/// Adds the subcommand `export`, see command.h of common.
void add_export_command(CLI::App& app, Action& action);
