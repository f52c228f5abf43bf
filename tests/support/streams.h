// Captures what code under test writes to streams of the C library.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

#include "tests/support/process.h"

/// All that was written so far to a stream that can also be read, such as one of `std::tmpfile`.
[[nodiscard]] std::string read_stream(std::FILE* stream);

/// Runs `function` in a new process as its `main`. For code that closes standard output.
[[nodiscard]] ProcessResult run_in_child(const std::function<int()>& function);

/// What `function` writes to standard output and to standard error, and what it returns.
[[nodiscard]] ProcessResult capture(const std::function<int()>& function);
