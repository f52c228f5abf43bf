// Runs programs at a terminal.
#pragma once

#include <string>
#include <vector>

#include "tests/support/process.h"

/// Runs `command` at a terminal of this size, where the user types `input`, and waits until it
/// ends. What the terminal shows is the `out` of the result: what the program writes to either
/// stream, and the input. The terminal shows a line feed as a carriage return and a line feed.
[[nodiscard]] ProcessResult run_at_terminal(const std::vector<std::string>& command,
                                            const std::string& input = "",
                                            unsigned short columns = 80, unsigned short lines = 25);
