// What the fuzzers of command lines work on.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// Empties the working folder and puts the database `trend.db` there. It has the device `plant`
/// with two intervals, of which one has rows that hide rows of the other, and a change of the
/// clocks in Central Europe. Returns its content.
const std::string& make_fixture();

/// Appends the arguments in `input`, one per line, to `words`. Returns false if one of them is a
/// path to another folder: nothing outside of the working folder is to be read or written.
[[nodiscard]] bool add_arguments(std::span<const std::uint8_t> input,
                                 std::vector<std::string>& words);
