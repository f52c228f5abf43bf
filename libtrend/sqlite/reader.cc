#include "libtrend/sqlite/reader.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include "libtrend/sqlite/backup.h"
#include "libtrend/sqlite/check.h"
#include "libtrend/sqlite/reader_vfs.h"
#include "libtrend/sqlite/schema.h"

namespace toolkit::trend {

std::unique_ptr<SqliteReader> SqliteReader::open(const std::string& path,
                                                 const OpenOptions& options, std::string& error) {
  return open(path, options, Mode::STRICT, error);
}

std::unique_ptr<SqliteReader> SqliteReader::open_damaged(const std::string& path,
                                                         const OpenOptions& options,
                                                         std::string& error) {
  OpenOptions read_only = options;
  read_only.read_only = true;
  return open(path, read_only, Mode::SKIP_DAMAGED, error);
}

std::unique_ptr<SqliteReader> SqliteReader::open(const std::string& path,
                                                 const OpenOptions& options, Mode mode,
                                                 std::string& error) {
  std::unique_ptr<SqliteReader> reader(new SqliteReader(path, options, mode));
  if (reader->connect()) return reader;
  error = reader->error();
  return nullptr;
}

SqliteReader::SqliteReader(const std::string& path, const OpenOptions& options, Mode mode)
    : path_(path), options_(options), mode_(mode) {}

/// Opens the database, also in place of a connection that became outdated.
bool SqliteReader::connect() {
  Database db = mode_ == Mode::STRICT ? open_database(path_, options_, error_)
                                      : open_damaged_database(path_, options_, error_);
  if (!db) return false;
  // A walk comes back to few pages, so a small cache is as good as a large one.
  if (options_.cache_size == 0 && !execute(db.get(), "PRAGMA cache_size = -512", error_)) {
    return false;
  }
  version_ = 0;
  rows_.reset();
  blocks_.reset();
  damaged_.reset();
  damage_.clear();
  counter_.reset();
  // The old connection is closed last: its lock keeps the log of a writer who came from being
  // deleted before the new connection uses it.
  std::swap(db_, db);
  return prepare();
}

/// Prepares all statements, which shows that the tables are there.
bool SqliteReader::prepare() {
  const std::pair<Statement*, const char*> texts[] = {
      {&begin_, "BEGIN"},
      {&commit_, "COMMIT"},
      {&data_version_, "PRAGMA data_version"},
      {&user_version_, "PRAGMA user_version"},
      {&devices_, "SELECT id, path, description FROM device ORDER BY id"},
      {&periods_, "SELECT DISTINCT minutes FROM series NOT INDEXED ORDER BY minutes"}};
  for (const auto& [statement, sql] : texts) *statement = Statement();
  for (const auto& [statement, sql] : texts) {
    *statement = Statement(db_.get(), sql);
    if (!*statement) return fail_with_database_error();
  }
  catalogue_ = DeviceCatalogue();
  catalogue_ = DeviceCatalogue(db_.get());
  if (!catalogue_) return fail_with_database_error();
  return run_once([] { return true; });
}

/// Prepares the statements for rows of a version of the format.
bool SqliteReader::prepare_version(std::int64_t version) {
  version_ = 0;
  rows_.reset();
  blocks_.reset();
  damaged_.reset();
  counter_.reset();
  if (!is_known_version(version, error_)) return false;
  if (mode_ == Mode::SKIP_DAMAGED) {
    damaged_ = std::make_unique<DamagedReader>(db_.get(), version, damage_, error_);
    if (!*damaged_) return fail_with_database_error();
  } else if (version == ROWS_ONLY_VERSION) {
    rows_ = std::make_unique<RowTable>(db_.get(), "snapshot", "NULL");
    if (!*rows_) return fail_with_database_error();
  } else {
    blocks_ = std::make_unique<BlockReader>(db_.get(), error_);
    if (!*blocks_) return fail_with_database_error();
  }
  version_ = version;
  return true;
}

bool SqliteReader::fail_with_database_error() {
  error_ = sqlite3_errmsg(db_.get());
  return false;
}

/// Looks at the database at the start of a transaction: another program may have changed it, also
/// to another version of the format. What is remembered of it holds until then.
bool SqliteReader::start_query() {
  std::int64_t data = 0;
  if (!read_number(data_version_, data)) return false;
  const bool has_changed = version_ == 0 || data != seen_data_;
  if (has_changed) {
    std::int64_t version = 0;
    if (!read_number(user_version_, version)) return false;
    if (version != version_ && !prepare_version(version)) return false;
    catalogue_.forget();
    seen_data_ = data;
  }
  if (damaged_) damaged_->start_query(has_changed);
  return !blocks_ || blocks_->start_query(has_changed);
}

/// Reads the number that `statement`, a pragma, yields. Returns false on failure.
bool SqliteReader::read_number(Statement& statement, std::int64_t& number) {
  const RunningStatement row(&statement);
  if (row->step() != Statement::Step::ROW) return fail_with_database_error();
  number = row->read_whole(0);
  return true;
}

/// Runs `query` in a transaction, so that a row recorded meanwhile is in all of the result or in
/// none of it.
bool SqliteReader::run_once(const std::function<bool()>& query) {
  if (!begin_.run()) return fail_with_database_error();
  const bool is_answered = start_query() && query();
  // A transaction that only read has nothing to lose, so how its end went does not matter.
  static_cast<void>(commit_.run());
  if (options_.cache_size == 0) trim_cache(db_.get());
  return is_answered;
}

bool SqliteReader::run(const std::function<bool()>& query) {
  // A writer that comes is noticed once. More rounds take a program that changes the journal mode
  // again and again.
  for (int rounds = 5; rounds > 0; --rounds) {
    const bool is_answered = run_once(query);
    if (!is_outdated(db_.get())) return is_answered;
    if (!connect()) return false;
  }
  error_ = "its journal mode keeps changing";
  return false;
}

/// Notes that a part of the catalogue can't be read. Returns whether that is not a failure.
bool SqliteReader::lose_catalogue(const std::string& reason) {
  error_ = reason;
  if (mode_ == Mode::STRICT) return false;
  damage_.insert({.device = "", .param = "", .text = reason});
  return true;
}

bool SqliteReader::get_devices(std::vector<CDeviceProperties>& devices) {
  const auto take_row = [&](const Statement& row) {
    CDeviceProperties device;
    if (!row.read(0, device.aux_1) || !row.read(1, device.path) || !row.read(2, device.aux_text)) {
      return false;
    }
    devices.push_back(std::move(device));
    return true;
  };
  return for_each_row(devices_, take_row, lose_);
}

bool SqliteReader::get_params(const CDeviceProperties& device,
                              std::vector<CParamProperties>& params) {
  return catalogue_.get_params(device.aux_1, version_, params, lose_);
}

bool SqliteReader::get_periods(std::vector<CPeriodProperties>& periods) {
  const auto take_row = [&](const Statement& row) {
    std::int64_t minutes = 0;
    if (!row.read(0, minutes) || minutes <= 0) return false;
    // An interval too long for the record can't be named or queried, so it is left out.
    if (minutes <= std::numeric_limits<std::uint32_t>::max()) {
      periods.push_back({.interval = static_cast<std::uint32_t>(minutes)});
    }
    return true;
  };
  return for_each_row(periods_, take_row, lose_);
}

bool SqliteReader::get_series(const CDeviceProperties& device, std::vector<CSeries>& series) {
  return catalogue_.get_series(device.aux_1, version_, series, lose_);
}

bool SqliteReader::summarize(const CSeries& series, CSeriesSummary& summary) {
  if (!counter_)
    counter_ = std::make_unique<SeriesCounter>(db_.get(), version_ != ROWS_ONLY_VERSION);
  if (*counter_) return counter_->count(series, summary, error_);
  counter_.reset();
  return fail_with_database_error();
}

std::unique_ptr<SeriesCursor> SqliteReader::make_cursor(const CSeries& series,
                                                        const std::vector<CParamProperties>& params,
                                                        bool ascending,
                                                        const RowsWanted& /*wanted*/) {
  if (damaged_) return damaged_->make_cursor(series, params, ascending);
  if (blocks_) return blocks_->make_cursor(series, params, ascending);
  BorrowedStatement walk;
  if (rows_->lent_walks(ascending) < MAX_DEVICE_SERIES) {
    walk = rows_->borrow_walk(ascending);
    if (!walk) {
      fail_with_database_error();
      return nullptr;
    }
  }
  return std::make_unique<RowCursor>(*rows_, std::move(walk), series, params, ascending,
                                     MAX_TIMESTAMP, error_);
}

bool SqliteReader::get_uuid(std::string& uuid) {
  uuid = blocks_ ? blocks_->uuid() : "";
  return true;
}

bool SqliteReader::get_changes(const CSeries& series, std::uint64_t since,
                               CSeriesChanges& changes) {
  if (blocks_) return blocks_->get_changes(series, since, changes);
  changes.ranges.push_back({1, MAX_TIMESTAMP});
  return true;
}

void SqliteReader::get_damage(std::vector<CDamage>& damage) const {
  damage.insert(damage.end(), damage_.begin(), damage_.end());
}

bool SqliteReader::check(std::vector<CDamage>& damage, const ReportProgress& progress) {
  if (!check_database(db_.get(), version_, progress, damage, error_)) return false;
  // This connection may bear what others refuse.
  std::string reason;
  if (mode_ == Mode::STRICT || open(path_, options_, reason)) return true;
  const bool is_known = std::any_of(damage.begin(), damage.end(),
                                    [&](const CDamage& part) { return part.text == reason; });
  if (!is_known) damage.insert(damage.begin(), CDamage{.device = "", .param = "", .text = reason});
  return true;
}

bool SqliteReader::backup(const std::string& path, const ReportProgress& progress) {
  return back_up(db_.get(), path, progress, error_);
}

}  // namespace toolkit::trend
