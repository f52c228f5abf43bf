// A plain model of a trend log and of what dumping it prints, and logs made at random.
//
// It shares no code with the programs: every rule is implemented here again, in the simplest way,
// and speed does not matter.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/process.h"

/// The statistics that are recorded for a parameter; bits in the order of the columns.
enum : unsigned { MIN = 1, MAX = 2, AVG = 4, ACTUAL = 8, SUM = 16 };

struct ModelParam {
  std::string path;
  unsigned statistics = 0;
};

struct ModelRow {
  std::uint32_t minutes = 0;
  std::int64_t time = 0;
  double ratio = 1;
  std::vector<double> values;  ///< parameter by parameter, in the order of `ModelLog::params`
};

struct ModelLog {
  std::string device = "/plant";
  std::vector<ModelParam> params;
  std::vector<std::uint32_t> minutes;  ///< the intervals, the smallest first
  std::vector<ModelRow> rows;
};

/// A time zone whose clocks change at two o'clock on a Sunday of two months. The Sundays of a month
/// count from 1.
struct Zone {
  const char* name = "UTC0";  ///< as in the environment variable TZ
  int standard = 0;           ///< offset from UTC in seconds
  int summer = 0;
  unsigned start_month = 0;  ///< 0 for no daylight saving
  unsigned start_sunday = 0;
  unsigned end_month = 0;
  unsigned end_sunday = 0;

  /// The offset from UTC at `time`, in seconds.
  [[nodiscard]] int offset(std::int64_t time) const;
  /// Whether the clocks change within two hours of `time`.
  [[nodiscard]] bool is_near_change(std::int64_t time) const;
};

inline constexpr Zone UTC;
inline constexpr Zone KOLKATA = {"IST-5:30", 19800, 19800};
inline constexpr Zone NEW_YORK = {"EST5EDT,M3.2.0,M11.1.0", -18000, -14400, 3, 2, 11, 1};
inline constexpr Zone LORD_HOWE = {
    "LHST-10:30LHDT-11,M10.1.0,M4.1.0", 37800, 39600, 10, 1, 4, 1};  // changes by half an hour
inline constexpr Zone ZONES[] = {UTC, KOLKATA, NEW_YORK, LORD_HOWE};

/// What to dump and how.
struct DumpRequest {
  Zone zone;
  bool use_utc = false;
  std::vector<std::string> params;  ///< in the order typed
  std::vector<std::uint32_t> intervals;
  std::optional<std::int64_t> start;
  std::optional<std::int64_t> end;
  std::string input_format;  ///< empty for the default
  std::size_t max_records = 0;
  std::size_t offset = 0;
  std::optional<std::uint32_t> chunk_size;
  bool ascending = false;
  bool reverse = false;
  bool interval_begin = false;
  bool percent_valid = false;
  bool header = true;
  std::string date_format;  ///< empty for the default
  std::string time_format;

  /// The arguments of trendcsv for these options.
  [[nodiscard]] std::vector<std::string> arguments(const std::string& db,
                                                   const std::string& device) const;
};

/// Seconds since the epoch of a time in UTC.
[[nodiscard]] std::int64_t utc(int year, unsigned month, unsigned day, int hour = 0,
                               int minute = 0);

/// The rows of `log`, oldest first, that a query for `intervals` sees. No intervals means all.
[[nodiscard]] std::vector<ModelRow> visible_rows(const ModelLog& log,
                                                 const std::vector<std::uint32_t>& intervals);

/// What a dump of `log` must print, and its exit status.
[[nodiscard]] std::pair<std::string, int> expected_dump(const ModelLog& log,
                                                        const DumpRequest& request);

/// Runs trendcsv on the database at `db`.
[[nodiscard]] ProcessResult run_dump_tool(const std::string& db, const std::string& device,
                                          const DumpRequest& request);

/// Writes `log` into a database at `path` with the recorder; throws on failure.
void record(const ModelLog& log, const std::string& path);

using Random = std::mt19937;

/// A number from 0 to `limit` - 1.
[[nodiscard]] std::uint32_t pick(Random& random, std::uint32_t limit);

/// A value of any kind that a log can hold: NaN, infinities, numbers near powers of ten, random
/// bits.
[[nodiscard]] double random_value(Random& random);

/// A log with up to about a hundred rows, many of them around a change of the clocks. All times are
/// whole minutes with `whole_minutes`.
[[nodiscard]] ModelLog random_log(Random& random, bool whole_minutes);
