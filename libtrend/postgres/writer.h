// Recording into an archive on PostgreSQL; docs/archive.md describes its tables.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "libtrend/postgres/connection.h"
#include "libtrend/query/engine.h"

namespace toolkit::trend {

/// The writer of an archive. Rows are collected and sent together. A transaction locks the series
/// that it changes, so that the numbers of their changes follow the order of the commits.
class ArchiveWriter : public LogWriter {
 public:
  /// Opens the archive at `url`. Returns null on failure, with the reason in `error`.
  [[nodiscard]] static std::unique_ptr<LogWriter> open(const std::string& url, std::string& error);

  [[nodiscard]] bool begin() override;
  [[nodiscard]] bool commit() override;
  void rollback() override;
  [[nodiscard]] bool add_device(CDeviceProperties& device) override;
  [[nodiscard]] bool add_param(const CDeviceProperties& device, CParamProperties& param) override;
  [[nodiscard]] bool add_series(const CDeviceProperties& device, std::uint32_t minutes,
                                CSeries& series) override;
  [[nodiscard]] bool append(const CSeries& series, std::int64_t timestamp, double valid_ratio,
                            std::span<const double> slots) override;
  [[nodiscard]] bool purge(const CSeries& series, std::int64_t before) override;
  [[nodiscard]] bool remove_row(const CSeries& series, std::int64_t timestamp) override;
  [[nodiscard]] bool remove_series(const CSeries& series) override;
  [[nodiscard]] bool remove_device(const CDeviceProperties& device) override;
  [[nodiscard]] bool get_copied(const std::string& source, const CSeries& series,
                                std::uint64_t& change) override;
  [[nodiscard]] bool set_copied(const std::string& source, const CSeries& series,
                                std::uint64_t change) override;

 private:
  explicit ArchiveWriter(ArchiveAddress address);

  /// A range of times; it is empty if `first` is above `last`.
  struct Range {
    std::int64_t first = 1;
    std::int64_t last = 0;
    [[nodiscard]] bool is_within(std::int64_t time) const { return time >= first && time <= last; }
    void add(std::int64_t time);
  };
  /// What this transaction knows of a series that it has locked.
  struct Locked {
    std::int64_t change = 0;
    Range recorded;  ///< from the first row to the last, before the transaction
    Range added;     ///< by this transaction
    std::int64_t rows = 0;
  };

  /// The parameters of a device.
  struct KnownParams {
    bool is_locked = false;  ///< whether nobody else can add one
    std::map<std::string, CParamProperties> by_path;
    std::size_t free_slot = 0;  ///< the one after all of theirs
  };

  bool find_or_add(const char* find, const Parameters& key, const char* insert,
                   const Parameters& values, Result& result);
  [[nodiscard]] KnownParams* get_params(std::int64_t device_id, bool must_lock);
  [[nodiscard]] Locked* lock(std::int64_t series_id);
  [[nodiscard]] bool is_free(const Locked& series, std::int64_t series_id, std::int64_t time);
  [[nodiscard]] bool flush();
  [[nodiscard]] bool note_change(std::int64_t series_id, const Locked& series);
  bool run(const std::string& sql, const Parameters& parameters);
  bool fetch(const std::string& sql, const Parameters& parameters, Result& result);
  bool fail(const std::string& reason);

  Connection connection_;
  std::map<std::int64_t, Locked> locked_;
  std::map<std::int64_t, KnownParams> params_;  ///< by the id of the device
  std::vector<unsigned char> rows_;             ///< collected, in the form of COPY
};

}  // namespace toolkit::trend
