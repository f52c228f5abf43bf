// Reading an archive on PostgreSQL; docs/archive.md describes its tables.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/postgres/connection.h"
#include "libtrend/postgres/cursor.h"
#include "libtrend/query/engine.h"

namespace toolkit::trend {

/// The reader of an archive. A connection that was lost is made again by the next query.
class ArchiveReader : public LogReader {
 public:
  /// Opens the archive at `url`. Returns null on failure, with the reason in `error`.
  [[nodiscard]] static std::unique_ptr<LogReader> open(const std::string& url,
                                                       const OpenOptions& options,
                                                       std::string& error);

  [[nodiscard]] bool run(const std::function<bool()>& query) override;
  [[nodiscard]] bool get_devices(std::vector<CDeviceProperties>& devices) override;
  [[nodiscard]] bool get_params(const CDeviceProperties& device,
                                std::vector<CParamProperties>& params) override;
  [[nodiscard]] bool get_periods(std::vector<CPeriodProperties>& periods) override;
  [[nodiscard]] bool get_series(const CDeviceProperties& device,
                                std::vector<CSeries>& series) override;
  [[nodiscard]] bool summarize(const CSeries& series, CSeriesSummary& summary) override;
  [[nodiscard]] std::unique_ptr<SeriesCursor> make_cursor(
      const CSeries& series, const std::vector<CParamProperties>& params, bool ascending,
      const RowsWanted& wanted) override;
  [[nodiscard]] bool get_uuid(std::string& uuid) override;
  [[nodiscard]] bool get_changes(const CSeries& series, std::uint64_t since,
                                 CSeriesChanges& changes) override;
  void get_damage(std::vector<CDamage>& damage) const override;
  [[nodiscard]] bool check(std::vector<CDamage>& damage, const ReportProgress& progress) override;
  [[nodiscard]] bool backup(const std::string& path, const ReportProgress& progress) override;

 private:
  ArchiveReader(ArchiveAddress address, unsigned timeout)
      : connection_(std::move(address), Connection::Use::READ, timeout) {}

  bool begin();
  bool fetch(const std::string& sql, const Parameters& parameters, Result& result);
  bool fail(const std::string& reason);
  bool check_device(const CDeviceProperties& device, std::vector<CDamage>& damage,
                    std::uint64_t& rows, const ReportProgress& progress);

  Connection connection_;
  std::uint32_t finest_ = 0;  ///< the shortest interval that the query has a cursor for
  std::map<std::int64_t, std::int64_t> changes_;  ///< by the ids of the series that the query knows
  std::map<std::int64_t, Portion> portions_;      ///< likewise, the rows that were read last
  Portion ahead_;                                 ///< what the connection has sent ahead
};

}  // namespace toolkit::trend
