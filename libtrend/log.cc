#include "libtrend/log.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "libtrend/query/engine_module.h"
#include "libtrend/query/query.h"
#include "libtrend/sqlite/reader.h"

namespace toolkit::trend {

/// The connection that the copies of a handle share. It has no reader if `open` failed, and after
/// `close`.
struct CLog::Connection {
  std::unique_ptr<LogReader> reader;
  std::string error;

  /// Runs `query` on one state of the database and returns the status of the call. If `query` has
  /// to run again, what it appended to `list` is removed first.
  template <typename List, typename Query>
  int run(List& list, const Query& query) {
    const std::size_t size = list.size();
    const bool is_answered = reader->run([&] {
      list.resize(size);
      return query(*reader);
    });
    if (is_answered) return 0;
    error = reader->error();
    return -1;
  }
};

namespace {

constexpr const char* NOT_OPEN = "no database is open";

/// Opens the archive at `url`. Returns null on failure, with the reason in `error`.
std::unique_ptr<LogReader> open_archive(const std::string& url, const OpenOptions& options,
                                        std::string& error) {
  const EngineModule* module = load_postgres_module(error);
  return module == nullptr ? nullptr : module->open_reader(url, options, error);
}

}  // namespace

bool CLog::is_open() const {
  if (connection_ && connection_->reader) return true;
  if (connection_) connection_->error = NOT_OPEN;
  return false;
}

std::string CLog::error() const { return connection_ ? connection_->error : NOT_OPEN; }

int CLog::open(const std::string& path, const OpenOptions& options) {
  connection_ = std::make_shared<Connection>();
  connection_->reader = is_archive_url(path)
                            ? open_archive(path, options, connection_->error)
                            : SqliteReader::open(path, options, connection_->error);
  return connection_->reader ? 0 : -1;
}

int CLog::open_damaged(const std::string& path, const OpenOptions& options) {
  // A server looks after its own data.
  if (is_archive_url(path)) return open(path, options);
  connection_ = std::make_shared<Connection>();
  connection_->reader = SqliteReader::open_damaged(path, options, connection_->error);
  return connection_->reader ? 0 : -1;
}

int CLog::open(const std::string& path, bool read_only, bool create, unsigned busy_timeout,
               bool exclusive, unsigned page_size, unsigned cache_size, unsigned heap_limit,
               bool traditional_journal) {
  return open(path, {.read_only = read_only,
                     .create = create,
                     .busy_timeout = busy_timeout,
                     .exclusive = exclusive,
                     .page_size = page_size,
                     .cache_size = cache_size,
                     .heap_limit = heap_limit,
                     .traditional_journal = traditional_journal});
}

void CLog::close() {
  if (connection_) connection_->reader.reset();
  connection_.reset();
}

int CLog::get_devices(std::vector<CDeviceProperties>& devices) {
  if (!is_open()) return -1;
  return connection_->run(devices, [&](LogReader& reader) { return reader.get_devices(devices); });
}

int CLog::get_params(const CDeviceProperties& device, std::vector<CParamProperties>& params) {
  if (!is_open()) return -1;
  return connection_->run(params,
                          [&](LogReader& reader) { return reader.get_params(device, params); });
}

int CLog::get_periods(std::vector<CPeriodProperties>& periods) {
  if (!is_open()) return -1;
  return connection_->run(periods, [&](LogReader& reader) { return reader.get_periods(periods); });
}

int CLog::get_series(const CDeviceProperties& device, std::vector<CSeriesSummary>& series) {
  if (!is_open()) return -1;
  return connection_->run(series, [&](LogReader& reader) {
    std::vector<CSeries> found;
    return reader.get_series(device, found) &&
           std::all_of(found.begin(), found.end(), [&](const CSeries& one) {
             return reader.summarize(one, series.emplace_back());
           });
  });
}

int CLog::get_uuid(std::string& uuid) {
  if (!is_open()) return -1;
  std::vector<CDeviceProperties> nothing;
  return connection_->run(nothing, [&](LogReader& reader) { return reader.get_uuid(uuid); });
}

int CLog::get_changes(const CDeviceProperties& device, std::uint32_t minutes, std::uint64_t since,
                      CSeriesChanges& changes) {
  if (!is_open()) return -1;
  bool is_there = true;
  const int status = connection_->run(changes.ranges, [&](LogReader& reader) {
    std::vector<CSeries> all;
    if (!reader.get_series(device, all)) return false;
    const auto series = std::find_if(all.begin(), all.end(),
                                     [&](const CSeries& one) { return one.minutes == minutes; });
    is_there = series != all.end();
    if (!is_there) return true;
    changes = {};
    if (!reader.get_changes(*series, since, changes)) return false;
    if (changes.number >= since) return true;
    changes = {};
    return reader.get_changes(*series, 0, changes);
  });
  if (is_there) return status;
  connection_->error = "the database has no such series";
  return -1;
}

int CLog::get_trend_data(CDeviceData& result, const CDeviceParams& device,
                         const std::vector<CPeriodProperties>& periods,
                         const std::pair<long, long>& range, unsigned count, unsigned offset,
                         bool ascending, bool /*reserved*/) {
  if (!is_open()) return -1;
  constexpr long OPEN = -1;
  constexpr std::int64_t LATEST =
      std::min<std::int64_t>(MAX_TIMESTAMP, std::numeric_limits<std::time_t>::max());
  const RowQuery query = {
      .device = device,
      .periods = periods,
      .earliest = range.first == OPEN ? 1 : std::max<std::int64_t>(range.first, 1),
      .latest = range.second == OPEN ? LATEST : std::min<std::int64_t>(range.second, LATEST),
      .count = count == 0 ? std::numeric_limits<std::uint64_t>::max() : count,
      .offset = offset,
      .ascending = ascending};
  if (query.earliest > query.latest) return 0;
  return connection_->run(result.snapshots, [&](LogReader& reader) {
    return run_query(reader, query, result.snapshots);
  });
}

int CLog::get_damage(std::vector<CDamage>& damage) {
  if (!is_open()) return -1;
  connection_->reader->get_damage(damage);
  return 0;
}

int CLog::check(std::vector<CDamage>& damage, const ReportProgress& progress) {
  if (!is_open()) return -1;
  return connection_->run(damage,
                          [&](LogReader& reader) { return reader.check(damage, progress); });
}

int CLog::backup(const std::string& path, const ReportProgress& progress) {
  if (!is_open()) return -1;
  std::vector<CDamage> nothing;
  bool is_done = false;
  const int status = connection_->run(nothing, [&](LogReader& reader) {
    is_done = is_done || reader.backup(path, progress);
    return is_done;
  });
  // What fails after the copy was made does not concern it.
  return is_done ? 0 : status;
}

}  // namespace toolkit::trend
