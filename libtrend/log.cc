#include "libtrend/log.h"

#include <algorithm>
#include <limits>

#include "libtrend/query/query.h"
#include "libtrend/sqlite/database.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// The connection that the copies of a handle share, and the statements prepared on it. It is
/// without a database from `close` on.
struct CLog::Connection {
  Connection(Database database, bool has_own_cache_size)
      : db(std::move(database)),
        trims_cache(!has_own_cache_size),
        begin(db.get(), "BEGIN"),
        commit(db.get(), "COMMIT"),
        devices(db.get(), "SELECT id, path, description FROM device ORDER BY id"),
        params(db.get(), "SELECT path, statistics, first_slot FROM parameter WHERE device_id = ?1"),
        periods(db.get(), "SELECT DISTINCT minutes FROM series ORDER BY minutes"),
        series(db.get(), "SELECT id, minutes FROM series WHERE device_id = ?1 ORDER BY minutes"),
        snapshots(db.get()) {}

  /// Whether every statement could be prepared, which shows that the tables are there.
  [[nodiscard]] bool is_usable() const {
    return begin && commit && devices && params && periods && series && snapshots.is_usable();
  }

  void close() {
    for (Statement* statement : {&begin, &commit, &devices, &params, &periods, &series}) {
      *statement = Statement();
    }
    snapshots = QueryRunner();
    db.reset();
  }

  Database db;
  bool trims_cache;  ///< unless the user chose how large it may be
  Statement begin;
  Statement commit;
  Statement devices;
  Statement params;
  Statement periods;
  Statement series;
  QueryRunner snapshots;
};

/// Ends the transaction of a query when this goes out of scope.
struct CLog::QueryEnd {
  void operator()(Connection* connection) const {
    // A transaction that only read has nothing to lose, so how its end went does not matter.
    static_cast<void>(connection->commit.run());
    if (connection->trims_cache) trim_cache(connection->db.get());
  }
};

namespace {

/// Runs `statement` and calls `take_row`, which gives false on a damaged row, on each of its rows.
/// Returns 0, or -1 on failure.
template <typename TakeRow>
int for_each_row(Statement& statement, const TakeRow& take_row) {
  const RunningStatement running(&statement);
  Statement::Step step = statement.step();
  while (step == Statement::Step::ROW && take_row(statement)) step = statement.step();
  return step == Statement::Step::DONE ? 0 : -1;
}

}  // namespace

int CLog::open(const std::string& path, bool read_only, bool create, unsigned busy_timeout,
               bool exclusive, unsigned page_size, unsigned cache_size, unsigned heap_limit,
               bool traditional_journal) {
  connection_.reset();
  std::string error;
  const OpenOptions options = {.read_only = read_only,
                               .create = create,
                               .busy_timeout = busy_timeout,
                               .exclusive = exclusive,
                               .page_size = page_size,
                               .cache_size = cache_size,
                               .heap_limit = heap_limit,
                               .traditional_journal = traditional_journal};
  Database db = open_database(path, options, error);
  if (!db) return -1;
  auto connection = std::make_shared<Connection>(std::move(db), cache_size != 0);
  if (!connection->is_usable()) return -1;
  connection_ = std::move(connection);
  return 0;
}

void CLog::close() {
  if (connection_) connection_->close();
  connection_.reset();
}

int CLog::get_devices(std::vector<CDeviceProperties>& devices) {
  if (!connection_ || !connection_->db) return -1;
  return for_each_row(connection_->devices, [&](const Statement& row) {
    CDeviceProperties& device = devices.emplace_back();
    return row.read(0, device.aux_1) && row.read(1, device.path) && row.read(2, device.aux_text);
  });
}

int CLog::get_params(const CDeviceProperties& device, std::vector<CParamProperties>& params) {
  if (!connection_ || !connection_->db) return -1;
  connection_->params.bind(1, device.aux_1);
  return for_each_row(connection_->params, [&](const Statement& row) {
    CParamProperties& param = params.emplace_back();
    std::int64_t statistics = 0;
    std::int64_t first_slot = 0;
    if (!row.read(0, param.path) || !row.read(1, statistics) || !row.read(2, first_slot) ||
        statistics < 0 || statistics > ALL_STATISTICS || first_slot < 0) {
      return false;
    }
    // No row is long enough for slots that the field can't hold.
    constexpr std::int64_t MAX_SLOT = std::numeric_limits<std::uint32_t>::max();
    param.aux_1 = static_cast<std::uint32_t>(std::min(first_slot, MAX_SLOT));
    set_statistics(param, statistics);
    return true;
  });
}

int CLog::get_periods(std::vector<CPeriodProperties>& periods) {
  if (!connection_ || !connection_->db) return -1;
  return for_each_row(connection_->periods, [&](const Statement& row) {
    std::int64_t minutes = 0;
    if (!row.read(0, minutes) || minutes <= 0) return false;
    // An interval too long for the record can't be named or queried, so it is left out.
    if (minutes <= std::numeric_limits<std::uint32_t>::max()) {
      periods.push_back({.interval = static_cast<std::uint32_t>(minutes)});
    }
    return true;
  });
}

int CLog::get_trend_data(CDeviceData& result, const CDeviceParams& device,
                         const std::vector<CPeriodProperties>& periods,
                         const std::pair<long, long>& range, unsigned count, unsigned offset,
                         bool ascending, bool /*reserved*/) {
  if (!connection_ || !connection_->db) return -1;
  constexpr long OPEN = -1;
  constexpr std::int64_t LATEST =
      std::min<std::int64_t>(MAX_TIMESTAMP, std::numeric_limits<std::time_t>::max());
  RowQuery query;
  query.earliest = range.first == OPEN ? 1 : std::max<std::int64_t>(range.first, 1);
  query.latest = range.second == OPEN ? LATEST : std::min<std::int64_t>(range.second, LATEST);
  if (query.earliest > query.latest) return 0;
  query.count = count == 0 ? std::numeric_limits<std::uint64_t>::max() : count;
  query.offset = offset;
  query.ascending = ascending;

  // One transaction, so that a row recorded meanwhile is in all of the result or in none of it.
  if (!connection_->begin.run()) return -1;
  const std::unique_ptr<Connection, QueryEnd> transaction(connection_.get());
  connection_->series.bind(1, device.device.aux_1);
  const int status = for_each_row(connection_->series, [&](const Statement& row) {
    std::int64_t id = 0;
    std::int64_t minutes = 0;
    if (!row.read(0, id) || !row.read(1, minutes) || minutes <= 0 || id < -MAX_SERIES_ID - 1 ||
        id > MAX_SERIES_ID) {
      return false;
    }
    const bool wanted = std::any_of(periods.begin(), periods.end(),
                                    [&](const auto& period) { return period.interval == minutes; });
    if (wanted) query.series.push_back({id, static_cast<std::uint32_t>(minutes)});
    return true;
  });
  if (status != 0) return status;
  return connection_->snapshots.run(query, device.params, result.snapshots) ? 0 : -1;
}

}  // namespace toolkit::trend
