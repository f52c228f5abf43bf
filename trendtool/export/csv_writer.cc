// CSV: one time column, quotes where a name needs them, and the separator and the decimal sign that
// the user wants.
#include <cmath>
#include <utility>

#include "trendtool/common/escape.h"
#include "trendtool/common/statistic_names.h"
#include "trendtool/export/row_writer.h"
#include "trendtool/export/value_text.h"

using toolkit::trend::CSnapshot;

namespace {

/// What both layouts have in common: the fields at the start of a line.
class CsvWriter : public RowWriter {
 public:
  CsvWriter(const Export& what, OutputFile& out)
      : what_(what),
        out_(out),
        separator_(get_separator(what.options)),
        values_(what.options, what.options.decimal),
        times_(what.options) {}

  [[nodiscard]] std::string start_device(const ExportDevice& device) override {
    device_ = &device;
    device_field_ = make_field(device.selection.device.path);
    return "";
  }

 protected:
  /// The names of the fields at the start of a line.
  [[nodiscard]] std::string make_header() const {
    std::string text = "time";
    (text += separator_) += "interval";
    if (what_.names_devices()) (text += separator_) += "device";
    if (what_.options.with_validity) (text += separator_) += "percent_valid";
    return text;
  }

  /// A separator and the field `name`.
  [[nodiscard]] std::string make_field(const std::string& name) const {
    std::string text(1, separator_);
    append_csv_field(name, separator_, text);
    return text;
  }

  /// Sets `text` to the fields at the start of the lines of `row`.
  void make_start(const CSnapshot& row, std::string& text) {
    char buffer[MAX_TIME_TEXT + MAX_VALUE_TEXT + 32];
    char* end = times_.write(row.timestamp, buffer);
    *end++ = separator_;
    end = std::to_chars(end, end + 16, row.interval_minutes).ptr;
    text.assign(buffer, end);
    if (what_.names_devices()) text += device_field_;
    if (!what_.options.with_validity) return;
    end = write_percent(row.valid_ratio, what_.options.decimal, "", buffer);
    (text += separator_).append(buffer, end);
  }

  const Export& what_;
  OutputFile& out_;
  const ExportDevice* device_ = nullptr;
  char separator_;
  ValueText values_;
  std::string start_;

 private:
  /// The separator that was not given: one that is not the decimal sign.
  static char get_separator(const ExportOptions& options) {
    if (options.separator != 0) return options.separator;
    return options.decimal == ',' ? ';' : ',';
  }

  TimeText times_;
  std::string device_field_;
};

/// A line for each row.
class WideCsvWriter : public CsvWriter {
 public:
  using CsvWriter::CsvWriter;

  [[nodiscard]] std::string start() override {
    std::string text = make_header();
    for (const Column& column : what_.columns) text += make_field(column.name);
    out_.add(text + "\n");
    return "";
  }

  void write(const CSnapshot& row) override {
    make_start(row, start_);
    out_.add(start_);
    std::size_t column = 0;
    for (const Cell& cell : device_->cells) {
      for (; column < cell.column; ++column) add_missing();
      ++column;
      const double value = row.samples[cell.sample].*cell.member;
      char* end = out_.place(MAX_VALUE_TEXT + 1);
      *end++ = separator_;
      if (!std::isnan(value)) end = values_.write(value, end);
      out_.take(end);
    }
    for (; column < what_.columns.size(); ++column) add_missing();
    out_.add("\n");
  }

 private:
  void add_missing() { out_.add({&separator_, 1}); }
};

/// A line for each value. A missing value has a line with an empty field, and a row of a device
/// without parameters has a line with empty fields for all three, so that no row is lost.
class LongCsvWriter : public CsvWriter {
 public:
  using CsvWriter::CsvWriter;

  [[nodiscard]] std::string start() override {
    std::string text = make_header();
    for (const char* name : {"parameter", "statistic", "value"}) text += make_field(name);
    out_.add(text + "\n");
    for (const Column& column : what_.columns) {
      fields_.push_back(make_field(column.param_name) +
                        make_field(STATISTIC_NAMES[column.statistic]));
    }
    return "";
  }

  void write(const CSnapshot& row) override {
    make_start(row, start_);
    if (device_->cells.empty()) {
      const char empty[] = {separator_, separator_, separator_, '\n'};
      out_.add(start_);
      out_.add({empty, std::size(empty)});
    }
    for (const Cell& cell : device_->cells) {
      out_.add(start_);
      out_.add(fields_[cell.column]);
      const double value = row.samples[cell.sample].*cell.member;
      char* end = out_.place(MAX_VALUE_TEXT + 2);
      *end++ = separator_;
      if (!std::isnan(value)) end = values_.write(value, end);
      *end++ = '\n';
      out_.take(end);
    }
  }

 private:
  std::vector<std::string> fields_;  ///< parameter and statistic, by column
};

}  // namespace

std::unique_ptr<RowWriter> make_csv_writer(const Export& what, OutputFile& out) {
  return std::make_unique<WideCsvWriter>(what, out);
}

std::unique_ptr<RowWriter> make_long_csv_writer(const Export& what, OutputFile& out) {
  return std::make_unique<LongCsvWriter>(what, out);
}
