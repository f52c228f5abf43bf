// Where a time axis has its ticks, and what stands there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// One tick of a time axis.
struct Tick {
  std::int64_t time = 0;  ///< seconds since the epoch
  std::string time_text;  ///< like "12:00" or "1 Nov"
  std::string date_text;  ///< the day or year of `time_text`, where it differs from the tick before
};

/// Returns ticks at round times from `start` to `end`, in seconds since the epoch, at most `most`,
/// which must be at least 2. Times are in UTC with `use_utc`, and otherwise in the time zone of the
/// process, also where its clock changes.
[[nodiscard]] std::vector<Tick> make_ticks(std::int64_t start, std::int64_t end, std::size_t most,
                                           bool use_utc);

/// Returns the name of the time zone of such ticks, like "UTC" or "CET". It has both names if the
/// clock changes between `start` and `end`, like "CET/CEST".
[[nodiscard]] std::string zone_name(std::int64_t start, std::int64_t end, bool use_utc);
