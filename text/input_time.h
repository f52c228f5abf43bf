// Times that a user types.
#pragma once

#include <ctime>
#include <string>

/// Parses `text` with the strptime format `format` into `fields`. Unless the format sets it,
/// `tm_isdst` is -1: it is not known whether daylight saving time applies. Returns false if the
/// text does not match, or has more characters after the part that matches.
[[nodiscard]] bool parse_time(const std::string& text, const std::string& format, std::tm& fields);

/// Returns the time that `fields` show, in seconds since the epoch. The fields are in UTC with
/// `use_utc`, and otherwise in the time zone of the process. Returns -1 for a time that the C
/// library can't represent; -1 is also the time one second before the epoch.
[[nodiscard]] std::time_t to_epoch(std::tm fields, bool use_utc);
