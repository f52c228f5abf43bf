// Writing a trend database in a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "libtrend/query/engine.h"
#include "libtrend/sqlite/copied_rows.h"
#include "libtrend/sqlite/database.h"
#include "libtrend/sqlite/series_writers.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// The writer of a database file. It keeps its statements prepared from one row to the next.
class SqliteWriter : public LogWriter {
 public:
  /// Opens the database at `path`. Returns null on failure, with the reason in `error`.
  [[nodiscard]] static std::unique_ptr<SqliteWriter> open(const std::string& path,
                                                          std::string& error);
  ~SqliteWriter() override;

  [[nodiscard]] bool begin() override;
  [[nodiscard]] bool commit() override;
  void rollback() override;
  [[nodiscard]] bool add_device(CDeviceProperties& device) override;
  [[nodiscard]] bool add_param(const CDeviceProperties& device, CParamProperties& param) override;
  [[nodiscard]] bool add_series(const CDeviceProperties& device, std::uint32_t minutes,
                                CSeries& series) override;
  [[nodiscard]] bool append(const CSeries& series, std::int64_t timestamp, double valid_ratio,
                            std::span<const double> slots) override;
  [[nodiscard]] bool get_copied(const std::string& source, const CSeries& series,
                                std::uint64_t& change) override;
  [[nodiscard]] bool set_copied(const std::string& source, const CSeries& series,
                                std::uint64_t change) override;
  [[nodiscard]] bool purge(const CSeries& series, std::int64_t before) override;
  [[nodiscard]] bool remove_row(const CSeries& series, std::int64_t timestamp) override;
  [[nodiscard]] bool remove_series(const CSeries& series) override;
  [[nodiscard]] bool remove_device(const CDeviceProperties& device) override;

 private:
  explicit SqliteWriter(Database db) : db_(std::move(db)) {}
  enum class Outcome { RECORDED, NOT_RECORDED, IN_DOUBT };
  /// What the parameters of a device use.
  struct Used {
    std::size_t slots = 0;  ///< up to the slot of the next parameter
    std::size_t params = 0;
  };

  [[nodiscard]] bool prepare();
  bool adopt_changes();
  [[nodiscard]] bool insert(Statement& statement, bool& is_new);
  bool remove_from_catalogue(const char* sql, std::int64_t id);
  [[nodiscard]] Outcome look_for_last_change();
  bool find_used(std::int64_t device_id, Used& used);
  bool fail(const std::string& reason);
  bool fail_with_database_error();
  bool pass_on(bool is_done);

  Database db_;
  SeriesWriters series_;
  bool has_tables_ = false;  ///< whether `series_` has prepared its statements
  /// What `PRAGMA data_version` said when `series_` was up to date; 0 for never.
  std::int64_t data_version_ = 0;
  bool has_new_catalogue_ = false;     ///< whether this transaction changed the catalogue
  std::optional<CopiedRow> copied_;    ///< what `set_copied` has noted last in this transaction
  std::map<std::int64_t, Used> used_;  ///< by the id of the device, where this transaction knows it
  Statement begin_;
  Statement commit_;
  Statement rollback_;
  Statement get_data_version_;
  Statement add_device_;
  Statement get_device_;
  Statement add_param_;
  Statement get_param_;
  Statement get_slots_;
  Statement add_series_;
  Statement get_series_;
};

}  // namespace toolkit::trend
