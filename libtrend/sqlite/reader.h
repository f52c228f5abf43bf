// Reading a trend database in a file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/query/engine.h"
#include "libtrend/sqlite/block_reader.h"
#include "libtrend/sqlite/damage_list.h"
#include "libtrend/sqlite/damaged_reader.h"
#include "libtrend/sqlite/database.h"
#include "libtrend/sqlite/device_catalogue.h"
#include "libtrend/sqlite/row_cursor.h"
#include "libtrend/sqlite/series_counter.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// The reader of a database file. It keeps its statements prepared from one query to the next.
class SqliteReader : public LogReader {
 public:
  /// Opens the database at `path`. Returns null on failure, with the reason in `error`.
  [[nodiscard]] static std::unique_ptr<SqliteReader> open(const std::string& path,
                                                          const OpenOptions& options,
                                                          std::string& error);

  /// The same for a database that may be damaged, see `CLog::open_damaged`.
  [[nodiscard]] static std::unique_ptr<SqliteReader> open_damaged(const std::string& path,
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
  enum class Mode { STRICT, SKIP_DAMAGED };

  SqliteReader(const std::string& path, const OpenOptions& options, Mode mode);
  static std::unique_ptr<SqliteReader> open(const std::string& path, const OpenOptions& options,
                                            Mode mode, std::string& error);
  [[nodiscard]] bool connect();
  [[nodiscard]] bool prepare();
  [[nodiscard]] bool prepare_version(std::int64_t version);
  bool start_query();
  bool read_number(Statement& statement, std::int64_t& number);
  bool run_once(const std::function<bool()>& query);
  bool lose_catalogue(const std::string& reason);
  bool fail_with_database_error();

  std::string path_;
  OpenOptions options_;
  Mode mode_;
  DamageList damage_;  ///< what queries have left out
  Database db_;
  Statement begin_;
  Statement commit_;
  Statement data_version_;
  Statement user_version_;
  Statement devices_;
  Statement periods_;
  DeviceCatalogue catalogue_;
  const LoseCatalogue lose_ = [this](const std::string& reason) { return lose_catalogue(reason); };
  std::int64_t seen_data_ = 0;      ///< SQLite's number of the state of the database seen last
  std::int64_t version_ = 0;        ///< of the format, for which one of these is there; 0 for none
  std::unique_ptr<RowTable> rows_;  ///< version 1
  std::unique_ptr<BlockReader> blocks_;     ///< version 2
  std::unique_ptr<DamagedReader> damaged_;  ///< in their place, for any version
  std::unique_ptr<SeriesCounter> counter_;  ///< made when it is needed
};

}  // namespace toolkit::trend
