// Spreadsheets: a sheet for each device or, if wanted, for each interval of a device. Rows beyond
// the limit of the format go to one more sheet.
#include <xlsxwriter.h>

#include <charconv>
#include <cmath>
#include <map>
#include <utility>

#include "text/calendar.h"
#include "trendtool/export/row_writer.h"
#include "trendtool/export/sheet_name.h"
#include "trendtool/export/value_text.h"

using toolkit::trend::CSnapshot;

namespace {

constexpr std::size_t MAX_COLUMNS = 16384;

/// A sheet that rows are added to, and the row that comes next.
struct Sheet {
  lxw_worksheet* sheet = nullptr;
  lxw_row_t next_row = 0;
};

class XlsxWriter : public RowWriter {
 public:
  XlsxWriter(const Export& what, OutputFile& out, std::uint32_t most_lines)
      : what_(what),
        path_(out.written_path()),
        most_lines_(most_lines),
        values_(what.options, '.') {}
  ~XlsxWriter() override {
    // This is after a failure. A workbook without sheets must not be closed.
    if (book_ != nullptr) lxw_workbook_free(book_);
  }

  [[nodiscard]] std::string start() override {
    if (path_.empty()) return "xlsx can be written to a regular file only; name another with -f";
    // Rows leave the memory as soon as they are complete.
    lxw_workbook_options options = {};
    options.constant_memory = LXW_TRUE;
    options.use_zip64 = LXW_TRUE;
    book_ = workbook_new_opt(path_.c_str(), &options);
    // Only a failed allocation leads to this.
    if (book_ == nullptr) return "can't make a spreadsheet";
    date_format_ = workbook_add_format(book_);
    format_set_num_format(date_format_, "yyyy-mm-dd hh:mm:ss");
    title_format_ = workbook_add_format(book_);
    format_set_bold(title_format_);
    return "";
  }

  [[nodiscard]] std::string start_device(const ExportDevice& device) override {
    device_ = &device;
    sheets_.clear();
    if (device.cells.size() + fixed_columns() > MAX_COLUMNS) {
      return "xlsx has at most " + std::to_string(MAX_COLUMNS) +
             " columns; choose parameters with -p";
    }
    // A device without rows has a sheet too.
    if (!what_.options.sheet_per_interval) add_sheet(sheets_[0], 0);
    return "";
  }

  void write(const CSnapshot& row) override {
    const std::uint32_t key = what_.options.sheet_per_interval ? row.interval_minutes : 0;
    Sheet& sheet = sheets_[key];
    if (sheet.sheet == nullptr || sheet.next_row == most_lines_) add_sheet(sheet, key);
    if (sheet.sheet == nullptr) return;
    const lxw_row_t line = sheet.next_row++;
    lxw_col_t column = 0;
    write_number(sheet, line, column++, get_date(row.timestamp), date_format_);
    write_number(sheet, line, column++, row.interval_minutes, nullptr);
    if (what_.options.with_validity) {
      write_number(sheet, line, column++, std::round(row.valid_ratio * 10000) / 100, nullptr);
    }
    for (const Cell& cell : device_->cells) {
      const double value = row.samples[cell.sample].*cell.member;
      write_number(sheet, line, column++, what_.options.exact ? value : round(value), nullptr);
    }
  }

  [[nodiscard]] std::string finish() override {
    // A workbook needs a sheet.
    if (!has_sheets_) has_failed_ |= workbook_add_worksheet(book_, nullptr) == nullptr;
    if (has_failed_) return "can't write the spreadsheet: a sheet or a row was refused";
    const lxw_error error = workbook_close(std::exchange(book_, nullptr));
    if (error != LXW_NO_ERROR)
      return std::string("can't write the spreadsheet: ") + lxw_strerror(error);
    return "";
  }

  [[nodiscard]] std::string describe_loss() const override {
    if (infinities_ == 0) return "";
    return std::to_string(infinities_) + " infinite values are left out; xlsx can't hold them";
  }

 private:
  [[nodiscard]] std::size_t fixed_columns() const { return what_.options.with_validity ? 3 : 2; }

  /// Makes a sheet for the rows of the interval `minutes`, or of all intervals if that is 0.
  void add_sheet(Sheet& sheet, std::uint32_t minutes) {
    std::string name = device_->selection.device.path;
    if (minutes != 0) name.append(" ").append(std::to_string(minutes)).append(" min");
    sheet.sheet = workbook_add_worksheet(book_, names_.make(name).c_str());
    if (sheet.sheet == nullptr) {
      has_failed_ = true;
      return;
    }
    has_sheets_ = true;
    constexpr double DATE_WIDTH = 19;
    worksheet_set_column(sheet.sheet, 0, 0, DATE_WIDTH, nullptr);
    worksheet_freeze_panes(sheet.sheet, 1, 1);
    lxw_col_t column = 0;
    const auto add_title = [&](const std::string& title) {
      worksheet_write_string(sheet.sheet, 0, column++, title.c_str(), title_format_);
    };
    add_title(what_.options.use_utc ? "time (UTC)" : "time");
    add_title("interval");
    if (what_.options.with_validity) add_title("percent_valid");
    for (const Cell& cell : device_->cells) add_title(what_.columns[cell.column].name);
    sheet.next_row = 1;
  }

  /// Writes a number. A cell stays empty for a missing value, and for an infinity.
  void write_number(const Sheet& sheet, lxw_row_t row, lxw_col_t column, double value,
                    lxw_format* format) {
    if (std::isinf(value)) ++infinities_;
    if (!std::isfinite(value)) return;
    has_failed_ |= worksheet_write_number(sheet.sheet, row, column, value, format) != LXW_NO_ERROR;
  }

  /// The number that the text of `value` stands for, which has six digits.
  [[nodiscard]] double round(double value) const {
    if (!std::isfinite(value)) return value;
    char text[MAX_VALUE_TEXT];
    const char* end = values_.write(value, text);
    double rounded = value;
    std::from_chars(text, end, rounded);
    return rounded;
  }

  /// The days since 30 December 1899 that a clock shows.
  double get_date(std::time_t time) {
    constexpr double DAY = 86400;
    constexpr double EPOCH = 25569;
    const std::tm fields = calendar_.fields_at(time, what_.options.use_utc);
    return EPOCH + static_cast<double>(to_wall_seconds(fields)) / DAY;
  }

  const Export& what_;
  std::string path_;
  lxw_row_t most_lines_;
  ValueText values_;
  Calendar calendar_;
  lxw_workbook* book_ = nullptr;
  lxw_format* date_format_ = nullptr;
  lxw_format* title_format_ = nullptr;
  SheetNames names_;
  bool has_sheets_ = false;
  bool has_failed_ = false;
  const ExportDevice* device_ = nullptr;
  std::map<std::uint32_t, Sheet> sheets_;  ///< of the device, by interval; 0 for all intervals
  std::uint64_t infinities_ = 0;
};

}  // namespace

std::string find_xlsx_conflict(const ExportOptions& options) {
  return options.output_path.empty() ? "xlsx needs a file; name it with -f" : "";
}

std::unique_ptr<RowWriter> make_xlsx_writer(const Export& what, OutputFile& out,
                                            std::uint32_t most_lines) {
  return std::make_unique<XlsxWriter>(what, out, most_lines);
}
