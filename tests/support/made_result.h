// Rows as a server of an archive sends them, made up by a test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "libtrend/postgres/values.h"

/// Appends the lowest `size` bytes of `number` to `bytes`, the highest of them first.
void append_number(std::uint64_t number, std::size_t size, std::string& bytes);

/// Makes one row with these values in binary form. Throws std::runtime_error on failure.
[[nodiscard]] toolkit::trend::Result make_result(const std::vector<std::string>& columns);
