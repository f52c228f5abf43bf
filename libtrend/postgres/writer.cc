#include "libtrend/postgres/writer.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <iterator>
#include <utility>

#include "libtrend/postgres/catalogue.h"
#include "libtrend/postgres/schema.h"
#include "libtrend/postgres/wire.h"
#include "libtrend/query/bytes.h"
#include "libtrend/statistics.h"

namespace toolkit::trend {

namespace {

constexpr unsigned LOCK_TIMEOUT = 40;                       // seconds
constexpr std::size_t ROWS_TO_SEND = std::size_t{4} << 20;  // bytes
constexpr std::uint32_t IS_NULL = 0xFFFFFFFF;               // in the place of a length

void append_value(std::uint64_t bits, std::vector<unsigned char>& bytes) {
  append(std::uint32_t{sizeof bits}, bytes);
  append(bits, bytes);
}

/// Starts the data of COPY in its binary form.
void start_copy(std::vector<unsigned char>& bytes) {
  constexpr unsigned char SIGNATURE[] = {'P', 'G', 'C', 'O', 'P', 'Y', '\n', 0xFF, '\r', '\n', 0};
  bytes.assign(std::begin(SIGNATURE), std::end(SIGNATURE));
  append(std::uint64_t{0}, bytes);  // flags, and the length of an extension
}

void finish_copy(std::vector<unsigned char>& bytes) { append(std::uint16_t{0xFFFF}, bytes); }

/// Appends a row to the data of COPY.
void append_row(std::int64_t series_id, std::int64_t time, double valid_ratio,
                std::span<const double> slots, std::vector<unsigned char>& bytes) {
  append(std::uint16_t{4}, bytes);  // columns
  append_value(static_cast<std::uint64_t>(series_id), bytes);
  append_value(static_cast<std::uint64_t>(get_wire_time(time)), bytes);
  append_value(std::bit_cast<std::uint64_t>(valid_ratio), bytes);
  const std::size_t length_place = bytes.size();
  append(std::uint32_t{0}, bytes);
  const std::size_t start = bytes.size();
  const bool has_null =
      std::any_of(slots.begin(), slots.end(), [](double value) { return std::isnan(value); });
  append(std::uint32_t{slots.empty() ? 0U : 1U}, bytes);  // dimensions
  append(std::uint32_t{has_null ? 1U : 0U}, bytes);
  append(TYPE_OF_FLOAT8, bytes);
  if (!slots.empty()) {
    append(static_cast<std::uint32_t>(slots.size()), bytes);
    append(std::uint32_t{1}, bytes);  // the lowest index
  }
  for (const double value : slots) {
    if (std::isnan(value)) {
      append(IS_NULL, bytes);
    } else {
      append_value(std::bit_cast<std::uint64_t>(value), bytes);
    }
  }
  store(static_cast<std::uint32_t>(bytes.size() - start), bytes.data() + length_place);
}

}  // namespace

ArchiveWriter::ArchiveWriter(ArchiveAddress address)
    : connection_(std::move(address), Connection::Use::WRITE, LOCK_TIMEOUT) {}

std::unique_ptr<LogWriter> ArchiveWriter::open(const std::string& url, std::string& error) {
  ArchiveAddress address;
  if (!parse_archive_url(url, address, error)) return nullptr;
  std::unique_ptr<ArchiveWriter> writer(new ArchiveWriter(std::move(address)));
  if (writer->connection_.ensure() && expect_archive(writer->connection_, error)) return writer;
  if (error.empty()) error = writer->connection_.error();
  return nullptr;
}

void ArchiveWriter::Range::add(std::int64_t time) {
  *this = first > last ? Range{time, time} : Range{std::min(first, time), std::max(last, time)};
}

bool ArchiveWriter::fail(const std::string& reason) {
  error_ = reason;
  return false;
}

bool ArchiveWriter::fetch(const std::string& sql, const Parameters& parameters, Result& result) {
  if (connection_.run(sql, parameters, result)) return true;
  return fail(connection_.error());
}

bool ArchiveWriter::run(const std::string& sql, const Parameters& parameters) {
  Result nothing;
  return fetch(sql, parameters, nothing);
}

bool ArchiveWriter::begin() {
  locked_.clear();
  params_.clear();
  rows_.clear();
  if (connection_.ensure() && connection_.run("BEGIN")) return true;
  return fail(connection_.error());
}

void ArchiveWriter::rollback() { static_cast<void>(connection_.run("ROLLBACK")); }

/// Records which times the transaction has added rows at. Where these come after those of the
/// change before, and both are few, they become one.
bool ArchiveWriter::note_change(std::int64_t series_id, const Locked& series) {
  Parameters parameters;
  parameters.add(series_id).add(series.change).add_time(series.added.first);
  parameters.add_time(series.added.last).add(series.rows);
  return run(
      "WITH joined AS (UPDATE change SET number = $2, last_time = $4, rows = rows + $5 "
      "WHERE series_id = $1 AND rows + $5 <= 512 AND last_time < $3 AND number = "
      "(SELECT max(number) FROM change WHERE series_id = $1) RETURNING 1) "
      "INSERT INTO change SELECT $1, $2, $3, $4, $5 WHERE NOT EXISTS (SELECT FROM joined)",
      parameters);
}

bool ArchiveWriter::commit() {
  if (!flush()) return false;
  for (const auto& [series_id, series] : locked_) {
    if (series.rows > 0 && !note_change(series_id, series)) return false;
  }
  bool is_in_doubt = false;
  if (connection_.commit(is_in_doubt)) return true;
  if (!is_in_doubt) return fail(connection_.error());
  return fail("whether it was recorded is in doubt: " + connection_.error() +
              "; look with trendcsv");
}

/// Sets `result` to the row that `find` finds, which `insert` adds first if it is not there.
/// Returns false on failure.
bool ArchiveWriter::find_or_add(const char* find, const Parameters& key, const char* insert,
                                const Parameters& values, Result& result) {
  if (!fetch(find, key, result)) return false;
  if (result.rows() > 0) return true;
  if (!run(insert, values) || !fetch(find, key, result)) return false;
  if (result.rows() > 0) return true;
  return fail("an entry of the catalogue was removed meanwhile");
}

bool ArchiveWriter::add_device(CDeviceProperties& device) {
  Result result;
  if (!find_or_add("SELECT id, description FROM device WHERE path = $1",
                   Parameters().add(device.path),
                   "INSERT INTO device (path, description) VALUES ($1, $2) ON CONFLICT DO NOTHING",
                   Parameters().add(device.path).add(device.aux_text), result)) {
    return false;
  }
  if (result.read(0, 0, device.aux_1) && result.read(0, 1, device.aux_text)) return true;
  return fail(DAMAGED_CATALOGUE);
}

/// Reads the parameters of a device once for each transaction, and once more to lock the device, so
/// that two writers do not take the same slots. Returns null on failure.
ArchiveWriter::KnownParams* ArchiveWriter::get_params(std::int64_t device_id, bool must_lock) {
  const auto [entry, is_new] = params_.try_emplace(device_id);
  KnownParams& known = entry->second;
  if (!is_new && (known.is_locked || !must_lock)) return &known;
  const Parameters device = Parameters().add(device_id);
  Result result;
  if (must_lock && !fetch("SELECT id FROM device WHERE id = $1 FOR UPDATE", device, result)) {
    return nullptr;
  }
  if (must_lock && result.rows() != 1) {
    fail("the archive has no such device");
    return nullptr;
  }
  known.is_locked = must_lock;
  const std::string sql = std::string("SELECT ").append(PARAM_COLUMNS);
  if (!fetch(sql + " FROM parameter WHERE device_id = $1", device, result)) return nullptr;
  for (std::size_t row = 0; row < result.rows(); ++row) {
    CParamProperties param;
    if (!read_param(result, row, param)) {
      fail(DAMAGED_CATALOGUE);
      return nullptr;
    }
    known.free_slot = std::max(known.free_slot, get_slot(param, STATISTICS.size()));
    known.by_path[param.path] = param;
  }
  return &known;
}

bool ArchiveWriter::add_param(const CDeviceProperties& device, CParamProperties& param) {
  KnownParams* known = nullptr;
  for (const bool must_lock : {false, true}) {
    known = get_params(device.aux_1, must_lock);
    if (known == nullptr) return false;
    const auto same = known->by_path.find(param.path);
    if (same == known->by_path.end()) continue;
    param = same->second;
    return true;
  }
  param.aux_1 = static_cast<std::uint32_t>(known->free_slot);
  known->free_slot = get_slot(param, STATISTICS.size());
  if (known->free_slot > MAX_DEVICE_SLOTS) {
    return fail("parameter '" + param.path + "' needs more than the " +
                std::to_string(MAX_DEVICE_SLOTS) + " slots that a device can have");
  }
  if (known->by_path.size() == MAX_DEVICE_SLOTS) {
    return fail("a device has at most " + std::to_string(MAX_DEVICE_SLOTS) + " parameters");
  }
  known->by_path[param.path] = param;
  Parameters parameters;
  parameters.add(device.aux_1).add(param.path).add(std::int64_t{param.aux_1});
  for (const Statistic& statistic : STATISTICS) parameters.add(param.*statistic.flag);
  return run(
      "INSERT INTO parameter (device_id, path, first_slot, has_min, has_max, has_avg, "
      "has_actual, has_sum) VALUES ($1, $2, $3::bigint, $4, $5, $6, $7, $8)",
      parameters);
}

bool ArchiveWriter::add_series(const CDeviceProperties& device, std::uint32_t minutes,
                               CSeries& series) {
  Parameters key;
  key.add(device.aux_1).add(std::int64_t{minutes});
  Result result;
  std::int64_t count = 0;
  series.minutes = minutes;
  if (!find_or_add("SELECT id, (SELECT count(*) FROM series WHERE device_id = $1) FROM series "
                   "WHERE device_id = $1 AND minutes = $2",
                   key,
                   "INSERT INTO series (device_id, minutes) VALUES ($1, $2) ON CONFLICT DO NOTHING",
                   key, result)) {
    return false;
  }
  if (!result.read(0, 0, series.id) || !result.read(0, 1, count)) return fail(DAMAGED_CATALOGUE);
  if (count <= static_cast<std::int64_t>(MAX_DEVICE_SERIES)) return true;
  return fail("a device has at most " + std::to_string(MAX_DEVICE_SERIES) + " intervals");
}

/// Locks a series until the transaction ends, and looks which times it has. Returns null on
/// failure.
ArchiveWriter::Locked* ArchiveWriter::lock(std::int64_t series_id) {
  const auto known = locked_.find(series_id);
  if (known != locked_.end()) return &known->second;
  Locked series;
  Result result;
  if (!fetch("UPDATE series SET changes = changes + 1 WHERE id = $1 RETURNING changes",
             Parameters().add(series_id), result)) {
    return nullptr;
  }
  if (!result.read(0, 0, series.change)) {
    fail("the archive has no such series");
    return nullptr;
  }
  // min() and max() would bring all times of the series from a server that has them for another.
  if (!fetch("SELECT (SELECT time FROM snapshot WHERE series_id = $1 ORDER BY time LIMIT 1), "
             "(SELECT time FROM snapshot WHERE series_id = $1 ORDER BY time DESC LIMIT 1)",
             Parameters().add(series_id), result)) {
    return nullptr;
  }
  if (!result.is_null(0, 0) && (!result.read_time(0, 0, series.recorded.first) ||
                                !result.read_time(0, 1, series.recorded.last))) {
    fail(NOT_A_ROW);
    return nullptr;
  }
  return &locked_.emplace(series_id, series).first->second;
}

/// Sets whether the series has no row at `time`. The server is asked only if its first and last
/// rows do not tell.
bool ArchiveWriter::is_free(const Locked& series, std::int64_t series_id, std::int64_t time) {
  if (!series.recorded.is_within(time) && !series.added.is_within(time)) return true;
  Result result;
  if (!flush() || !fetch("SELECT 1 FROM snapshot WHERE series_id = $1 AND time = $2",
                         Parameters().add(series_id).add_time(time), result)) {
    return false;
  }
  if (result.rows() == 0) return true;
  return fail("the series has a row at the time " + std::to_string(time) + " already");
}

bool ArchiveWriter::append(const CSeries& series, std::int64_t timestamp, double valid_ratio,
                           std::span<const double> slots) {
  if (slots.size() > MAX_DEVICE_SLOTS) {
    return fail("a row has more than the " + std::to_string(MAX_DEVICE_SLOTS) +
                " slots that a device can have");
  }
  Locked* locked = lock(series.id);
  if (locked == nullptr || !is_free(*locked, series.id, timestamp)) return false;
  locked->added.add(timestamp);
  ++locked->rows;
  if (rows_.empty()) start_copy(rows_);
  append_row(series.id, timestamp, valid_ratio, slots, rows_);
  return rows_.size() < ROWS_TO_SEND || flush();
}

/// Sends the collected rows.
bool ArchiveWriter::flush() {
  if (rows_.empty()) return true;
  finish_copy(rows_);
  const bool is_sent = connection_.copy_in(
      "COPY snapshot (series_id, time, valid_ratio, samples) FROM STDIN BINARY", rows_);
  rows_.clear();
  if (is_sent) return true;
  return fail(connection_.error());
}

bool ArchiveWriter::purge(const CSeries& series, std::int64_t before) {
  Parameters parameters;
  // Beyond these limits there are no rows.
  parameters.add(series.id).add_time(std::clamp<std::int64_t>(before, 0, MAX_TIMESTAMP + 1));
  return lock(series.id) != nullptr && flush() &&
         run("DELETE FROM snapshot WHERE series_id = $1 AND time < $2", parameters) &&
         run("DELETE FROM change WHERE series_id = $1 AND last_time < $2", parameters);
}

bool ArchiveWriter::remove_row(const CSeries& series, std::int64_t timestamp) {
  if (timestamp <= NO_ROW || timestamp > MAX_TIMESTAMP) return fail("the series has no such row");
  Result result;
  if (lock(series.id) == nullptr || !flush() ||
      !fetch("DELETE FROM snapshot WHERE series_id = $1 AND time = $2 RETURNING 1",
             Parameters().add(series.id).add_time(timestamp), result)) {
    return false;
  }
  if (result.rows() == 1) return true;
  return fail("the series has no row at that time");
}

bool ArchiveWriter::remove_series(const CSeries& series) {
  if (lock(series.id) == nullptr || !flush()) return false;
  locked_.erase(series.id);
  const Parameters parameters = Parameters().add(series.id);
  return run("DELETE FROM snapshot WHERE series_id = $1", parameters) &&
         run("DELETE FROM change WHERE series_id = $1", parameters) &&
         run("DELETE FROM copied WHERE series_id = $1", parameters) &&
         run("DELETE FROM series WHERE id = $1", parameters);
}

bool ArchiveWriter::remove_device(const CDeviceProperties& device) {
  const Parameters parameters = Parameters().add(device.aux_1);
  Result result;
  if (!fetch("SELECT id FROM series WHERE device_id = $1", parameters, result)) return false;
  for (std::size_t row = 0; row < result.rows(); ++row) {
    CSeries series;
    if (!result.read(row, 0, series.id)) return fail(DAMAGED_CATALOGUE);
    if (!remove_series(series)) return false;
  }
  params_.erase(device.aux_1);
  if (!run("DELETE FROM parameter WHERE device_id = $1", parameters) ||
      !fetch("DELETE FROM device WHERE id = $1 RETURNING 1", parameters, result)) {
    return false;
  }
  if (result.rows() == 1) return true;
  return fail("the archive has no such device");
}

bool ArchiveWriter::get_copied(const std::string& source, const CSeries& series,
                               std::uint64_t& change) {
  change = 0;
  Result result;
  if (!fetch("SELECT change FROM copied WHERE source = $1::text::uuid AND series_id = $2",
             Parameters().add(source).add(series.id), result)) {
    return false;
  }
  std::int64_t number = 0;
  if (result.read(0, 0, number) && number > 0) {
    change = static_cast<std::uint64_t>(number);
  }
  return true;
}

bool ArchiveWriter::set_copied(const std::string& source, const CSeries& series,
                               std::uint64_t change) {
  return run(
      "INSERT INTO copied VALUES ($1::text::uuid, $2, $3) "
      "ON CONFLICT (source, series_id) DO UPDATE SET change = excluded.change",
      Parameters().add(source).add(series.id).add(static_cast<std::int64_t>(change)));
}

}  // namespace toolkit::trend
