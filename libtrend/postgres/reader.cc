#include "libtrend/postgres/reader.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "libtrend/postgres/catalogue.h"
#include "libtrend/postgres/schema.h"
#include "libtrend/statistics.h"

namespace toolkit::trend {

namespace {

constexpr const char* STOPPED = "it was stopped";

}  // namespace

std::unique_ptr<LogReader> ArchiveReader::open(const std::string& url, const OpenOptions& options,
                                               std::string& error) {
  ArchiveAddress address;
  if (!parse_archive_url(url, address, error)) return nullptr;
  std::unique_ptr<ArchiveReader> reader(
      new ArchiveReader(std::move(address), options.busy_timeout));
  if (reader->connection_.ensure() && expect_archive(reader->connection_, error)) return reader;
  if (error.empty()) error = reader->connection_.error();
  return nullptr;
}

bool ArchiveReader::fail(const std::string& reason) {
  error_ = reason;
  return false;
}

bool ArchiveReader::fetch(const std::string& sql, const Parameters& parameters, Result& result) {
  if (connection_.run(sql, parameters, result)) return true;
  return fail(connection_.error());
}

bool ArchiveReader::begin() {
  finest_ = 0;
  changes_.clear();
  if (!connection_.ensure()) return fail(connection_.error());
  connection_.run_with_next("BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY");
  return true;
}

bool ArchiveReader::run(const std::function<bool()>& query) {
  if (!begin()) return false;
  const bool is_answered = query();
  connection_.end_transaction();
  return is_answered;
}

bool ArchiveReader::get_devices(std::vector<CDeviceProperties>& devices) {
  Result result;
  if (!fetch("SELECT id, path, description FROM device ORDER BY id", {}, result)) return false;
  for (std::size_t row = 0; row < result.rows(); ++row) {
    CDeviceProperties& device = devices.emplace_back();
    if (!result.read(row, 0, device.aux_1) || !result.read(row, 1, device.path) ||
        !result.read(row, 2, device.aux_text)) {
      return fail(DAMAGED_CATALOGUE);
    }
  }
  return true;
}

bool ArchiveReader::get_params(const CDeviceProperties& device,
                               std::vector<CParamProperties>& params) {
  Result result;
  const std::string sql = std::string("SELECT ").append(PARAM_COLUMNS);
  if (!fetch(sql + " FROM parameter WHERE device_id = $1 ORDER BY first_slot, id",
             Parameters().add(device.aux_1), result)) {
    return false;
  }
  if (result.rows() > MAX_DEVICE_SLOTS) return fail(DAMAGED_CATALOGUE);
  for (std::size_t row = 0; row < result.rows(); ++row) {
    if (!read_param(result, row, params.emplace_back())) return fail(DAMAGED_CATALOGUE);
  }
  return true;
}

bool ArchiveReader::get_periods(std::vector<CPeriodProperties>& periods) {
  Result result;
  if (!fetch("SELECT DISTINCT minutes FROM series", {}, result)) return false;
  const std::size_t size = periods.size();
  for (std::size_t row = 0; row < result.rows(); ++row) {
    std::uint32_t& minutes = periods.emplace_back().interval;
    if (!read_number(result, row, 0, minutes) || minutes == 0) return fail(DAMAGED_CATALOGUE);
  }
  std::sort(periods.begin() + static_cast<std::ptrdiff_t>(size), periods.end(),
            [](const auto& a, const auto& b) { return a.interval < b.interval; });
  return true;
}

bool ArchiveReader::get_series(const CDeviceProperties& device, std::vector<CSeries>& series) {
  Result result;
  if (!fetch("SELECT id, minutes, changes FROM series WHERE device_id = $1 ORDER BY minutes",
             Parameters().add(device.aux_1), result)) {
    return false;
  }
  if (result.rows() > MAX_DEVICE_SERIES) return fail(DAMAGED_CATALOGUE);
  for (std::size_t row = 0; row < result.rows(); ++row) {
    CSeries& one = series.emplace_back();
    if (!result.read(row, 0, one.id) || !read_number(result, row, 1, one.minutes) ||
        one.minutes == 0 || !result.read(row, 2, changes_[one.id])) {
      return fail(DAMAGED_CATALOGUE);
    }
  }
  return true;
}

bool ArchiveReader::summarize(const CSeries& series, CSeriesSummary& summary) {
  summary = {.minutes = series.minutes};
  // Reading all rows would take long, so their size is that of the newest.
  Result result;
  if (!fetch(
          "SELECT rows, first, last, rows * bytes FROM (SELECT count(*) AS rows, "
          "min(time) AS first, max(time) AS last FROM snapshot WHERE series_id = $1) AS all_rows "
          "LEFT JOIN (SELECT pg_column_size(newest.*)::bigint AS bytes FROM snapshot AS newest "
          "WHERE series_id = $1 ORDER BY time DESC LIMIT 1) AS newest_row ON true",
          Parameters().add(series.id), result)) {
    return false;
  }
  if (!read_number(result, 0, 0, summary.rows)) return fail(DAMAGED_CATALOGUE);
  if (summary.rows == 0) return true;
  if (result.read_time(0, 1, summary.first_time) && result.read_time(0, 2, summary.last_time) &&
      read_number(result, 0, 3, summary.bytes)) {
    return true;
  }
  return fail(NOT_A_ROW);
}

std::unique_ptr<SeriesCursor> ArchiveReader::make_cursor(
    const CSeries& series, const std::vector<CParamProperties>& params, bool ascending,
    const RowsWanted& wanted) {
  if (finest_ == 0) finest_ = series.minutes;
  // While there are finer rows, a coarse series has few of the rows that a query returns.
  RowsWanted share = wanted;
  if (series.minutes > finest_) share.rows = wanted.rows / (series.minutes / finest_) + 2;
  // The rows of series that this query does not know will hardly be wanted again.
  std::erase_if(portions_, [&](const auto& entry) { return !changes_.contains(entry.first); });
  // Only one portion can be sent ahead. Of several series, the finest has the most rows.
  Portion* const ahead = series.minutes == finest_ ? &ahead_ : nullptr;
  return std::make_unique<ArchiveCursor>(connection_, series, changes_[series.id], params,
                                         ascending, share, portions_[series.id], ahead, error_);
}

bool ArchiveReader::get_uuid(std::string& uuid) {
  Result result;
  if (!fetch("SELECT uuid::text FROM archive", {}, result)) return false;
  if (result.read(0, 0, uuid)) return true;
  return fail(DAMAGED_CATALOGUE);
}

bool ArchiveReader::get_changes(const CSeries& series, std::uint64_t since,
                                CSeriesChanges& changes) {
  changes = {};
  Result result;
  if (!fetch("SELECT changes FROM series WHERE id = $1", Parameters().add(series.id), result)) {
    return false;
  }
  if (!read_number(result, 0, 0, changes.number)) return fail(DAMAGED_CATALOGUE);
  if (since == 0) {
    changes.ranges.push_back({1, MAX_TIMESTAMP});
    return true;
  }
  if (!fetch("SELECT first_time, last_time FROM change WHERE series_id = $1 AND number > $2 "
             "ORDER BY first_time",
             Parameters().add(series.id).add(static_cast<std::int64_t>(
                 std::min<std::uint64_t>(since, std::numeric_limits<std::int64_t>::max()))),
             result)) {
    return false;
  }
  for (std::size_t row = 0; row < result.rows(); ++row) {
    CTimeRange range;
    if (!result.read_time(row, 0, range.first) || !result.read_time(row, 1, range.last)) {
      return fail(DAMAGED_CATALOGUE);
    }
    if (!changes.ranges.empty() && range.first <= changes.ranges.back().last) {
      changes.ranges.back().last = std::max(changes.ranges.back().last, range.last);
    } else {
      changes.ranges.push_back(range);
    }
  }
  return true;
}

void ArchiveReader::get_damage(std::vector<CDamage>& /*damage*/) const {}

bool ArchiveReader::backup(const std::string& /*path*/, const ReportProgress& /*progress*/) {
  return fail("pg_dump makes a backup of an archive, and trendtool copy a database file of it");
}

bool ArchiveReader::check_device(const CDeviceProperties& device, std::vector<CDamage>& damage,
                                 std::uint64_t& rows, const ReportProgress& progress) {
  std::vector<CParamProperties> params;
  std::vector<CSeries> all;
  if (!get_params(device, params) || !get_series(device, all)) return false;
  std::size_t free_slot = 0;
  for (const CParamProperties& param : params) {
    if (param.aux_1 < free_slot) {
      damage.push_back({.device = device.path,
                        .minutes = 0,
                        .param = param.path,
                        .first = 0,
                        .last = 0,
                        .text = "its values are also those of another parameter"});
    }
    free_slot = std::max(free_slot, get_slot(param, STATISTICS.size()));
  }
  constexpr RowsWanted ALL = {.rows = std::numeric_limits<std::uint64_t>::max()};
  for (const CSeries& series : all) {
    const std::unique_ptr<SeriesCursor> cursor = make_cursor(series, params, true, ALL);
    bool can_be_read = cursor->place(1, MAX_TIMESTAMP);
    std::int64_t last = NO_ROW;
    while (can_be_read && cursor->timestamp() != NO_ROW) {
      CSnapshot row;
      last = cursor->timestamp();
      can_be_read = cursor->decode(row) && cursor->advance();
      if (progress && ++rows % 1024 == 0 && !progress(rows, 0)) return fail(STOPPED);
    }
    if (can_be_read) continue;
    if (!connection_.works()) return false;
    damage.push_back({.device = device.path,
                      .minutes = series.minutes,
                      .param = "",
                      .first = last + 1,
                      .last = MAX_TIMESTAMP,
                      .text = error_});
    // An error ends the transaction.
    connection_.end_transaction();
    if (!begin()) return false;
  }
  return true;
}

bool ArchiveReader::check(std::vector<CDamage>& damage, const ReportProgress& progress) {
  std::vector<CDeviceProperties> devices;
  std::uint64_t rows = 0;
  return get_devices(devices) &&
         std::all_of(devices.begin(), devices.end(), [&](const CDeviceProperties& device) {
           return check_device(device, damage, rows, progress);
         });
}

}  // namespace toolkit::trend
