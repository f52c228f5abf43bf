// Records what `trendtool export` wrote as CSV.
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "libtrend/recorder.h"
#include "trendtool/load/export_layout.h"
#include "trendtool/load/options.h"
#include "trendtool/load/row_sink.h"

/// Records records in an open transaction of a recorder. Functions that return a string return what
/// is wrong, or an empty text.
class ExportLoader {
 public:
  /// All four must outlive the loader.
  ExportLoader(const LoadOptions& options, toolkit::trend::CRecorder& recorder, RowSink& sink,
               const ExportLayout& layout);

  /// Adds the device and its parameters, where the file is of one device and its header has them.
  [[nodiscard]] std::string prepare();

  /// Records one record, or keeps it until its row is complete.
  [[nodiscard]] std::string load(const std::vector<std::string_view>& fields);

  /// Records what was kept.
  [[nodiscard]] std::string finish();

 private:
  /// A device of the file, and where its values are.
  struct Device {
    toolkit::trend::CDeviceProperties device;
    std::vector<toolkit::trend::CParamProperties> params;  ///< as they are in the database
    std::map<std::string, std::size_t> known_params;       ///< by path, index into `params`
    /// By column, where the parameter has the statistic.
    std::unordered_map<std::size_t, ValuePlace> places;
    std::map<std::uint32_t, toolkit::trend::CSeries> series;
    std::size_t slots = 0;
  };
  /// The start of a record, which is the same in all records of a row.
  struct RowStart {
    Device* device = nullptr;
    std::uint32_t minutes = 0;
    std::time_t time = 0;
    double ratio = 1;
  };
  /// A value of the current row.
  struct Value {
    std::size_t column = 0;  ///< index into `columns_.columns`
    double value = 0;
  };

  std::string read_start(const std::vector<std::string_view>& fields, RowStart& start);
  std::string find_device(std::string_view path, Device*& device);
  std::string add_value(std::string_view column, std::string_view field);
  void collect_row_statistics();
  std::string find_place(Device& device, std::size_t column, bool must_have);
  std::string record_row();

  const LoadOptions& options_;
  toolkit::trend::CRecorder& recorder_;
  RowSink& sink_;
  const ExportLayout& layout_;
  Layout columns_;  ///< of the header or, in the long layout, all that were seen
  std::map<std::string, std::size_t> known_columns_;  ///< in the long layout, by name
  std::vector<std::uint64_t> last_rows_;              ///< by column: the last row that has a value
  std::map<std::string, Device> devices_;             ///< by path
  RowStart row_;                                      ///< the current row
  std::uint64_t row_number_ = 0;                      ///< of the current row in the long layout
  std::vector<Value> values_;
  std::vector<double> slots_;
  std::vector<ValuePlace> places_;
  /// The mask of the statistics that the current row has, by index into `columns_.params`. Empty if
  /// it was not needed yet.
  std::unordered_map<std::size_t, std::uint32_t> row_statistics_;
  std::string text_;
};
