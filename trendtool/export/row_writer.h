// Writing rows in one of the formats.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "libtrend/records.h"
#include "trendtool/common/output_file.h"
#include "trendtool/export/columns.h"
#include "trendtool/export/options.h"

/// What a writer writes. It must outlive the writer.
struct Export {
  const ExportOptions& options;
  const std::vector<ExportDevice>& devices;
  const std::vector<Column>& columns;
  /// Whether each row says which device it is of.
  [[nodiscard]] bool names_devices() const { return options.all_devices || devices.size() > 1; }
};

/// Writes the rows of one device after another. Functions that return a string return what is
/// wrong, or an empty text. Whether the file could be written is known from the file.
class RowWriter {
 public:
  RowWriter() = default;
  virtual ~RowWriter() = default;
  RowWriter(const RowWriter&) = delete;
  RowWriter& operator=(const RowWriter&) = delete;

  /// Writes what is before all rows.
  [[nodiscard]] virtual std::string start() { return ""; }
  /// Starts with the rows of a device, which is one of the export.
  [[nodiscard]] virtual std::string start_device(const ExportDevice& device) = 0;
  /// Writes one row of the device.
  virtual void write(const toolkit::trend::CSnapshot& row) = 0;
  /// Writes what is after all rows.
  [[nodiscard]] virtual std::string finish() { return ""; }
  /// Says what the format could not hold of the rows, which does not make the file worthless.
  /// Returns an empty text if that is nothing.
  [[nodiscard]] virtual std::string describe_loss() const { return ""; }
};

/// Make the writers. `out` and what `what` refers to must outlive them.
[[nodiscard]] std::unique_ptr<RowWriter> make_csv_writer(const Export& what, OutputFile& out);
[[nodiscard]] std::unique_ptr<RowWriter> make_long_csv_writer(const Export& what, OutputFile& out);
[[nodiscard]] std::unique_ptr<RowWriter> make_jsonl_writer(const Export& what, OutputFile& out);
[[nodiscard]] std::unique_ptr<RowWriter> make_influx_writer(const Export& what, OutputFile& out);

/// Returns why xlsx can't be written with these options, or an empty text: it needs a file, and the
/// program may be built without it.
[[nodiscard]] std::string find_xlsx_conflict(const ExportOptions& options);
/// To be called only where there is no conflict. A sheet has at most `most_lines` lines, which is a
/// limit of the format.
[[nodiscard]] std::unique_ptr<RowWriter> make_xlsx_writer(const Export& what, OutputFile& out,
                                                          std::uint32_t most_lines = 1'048'576);
