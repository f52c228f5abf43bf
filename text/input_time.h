// Times as a user types them.
#pragma once

#include <ctime>
#include <string>

/// Parses the whole of `text` under the strptime format `format` into `fields`. Unless the format
/// says so, whether daylight saving applies is left open (`tm_isdst` -1). Returns false where the
/// text does not match, or goes on behind what matches.
[[nodiscard]] bool parse_time(const std::string& text, const std::string& format, std::tm& fields);

/// The time that `fields` denote, in UTC or in the process's time zone, in seconds since the epoch.
/// Returns -1 for a time that the C library can't represent, and so for the second before the epoch
/// as well.
[[nodiscard]] std::time_t to_epoch(std::tm fields, bool use_utc);
