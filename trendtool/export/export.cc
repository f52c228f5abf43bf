#include "trendtool/export/export.h"

#include <algorithm>
#include <utility>

#include "trendtool/common/damage_text.h"
#include "trendtool/common/messages.h"
#include "trendtool/common/progress.h"
#include "trendtool/common/rows.h"
#include "trendtool/common/selection.h"
#include "trendtool/common/times.h"
#include "trendtool/export/row_writer.h"

using toolkit::trend::CDamage;
using toolkit::trend::CDeviceProperties;
using toolkit::trend::CLog;
using toolkit::trend::CParamProperties;
using toolkit::trend::CSeriesSummary;
using toolkit::trend::CSnapshot;

namespace {

/// Returns what is wrong with options that do not go together, or an empty text.
std::string find_conflict(const ExportOptions& options) {
  if (options.all_devices && !options.devices.empty()) {
    return "-d and --all-devices do not go together; use one of them";
  }
  if (!options.all_devices && options.devices.empty()) {
    return "no device is given; name devices with -d, or take all with --all-devices";
  }
  const bool is_csv = options.format == ExportFormat::CSV;
  if (!is_csv && (options.separator != 0 || options.decimal != '.' || options.is_long)) {
    return "--separator, --decimal and --layout are for csv; leave them out, or use --format csv";
  }
  if (options.separator == options.decimal) {
    return "the separator and the decimal sign are the same; choose another --separator";
  }
  if (options.sheet_per_interval && options.format != ExportFormat::XLSX) {
    return "--sheet-per-interval is for xlsx; leave it out, or use --format xlsx";
  }
  const bool needs_time =
      options.format == ExportFormat::XLSX || options.format == ExportFormat::INFLUX;
  if (options.use_epoch && needs_time) {
    return "--epoch is for csv and jsonl; leave it out, or use another --format";
  }
  return options.format == ExportFormat::XLSX ? find_xlsx_conflict(options) : "";
}

/// An export: what is selected, and what has been done of it.
class Exporter {
 public:
  explicit Exporter(const ExportOptions& options) : options_(options) {}

  /// Runs the export. Returns the exit status.
  int run() {
    if (std::string wrong = find_conflict(options_); !wrong.empty()) return refuse_usage(wrong);
    std::pair<long, long> range;
    std::string wrong = read_range(options_.start, options_.end, options_.use_utc, range);
    if (!wrong.empty()) return refuse_usage(wrong);
    wrong = options_.skip_damaged ? open_damaged_log(log_, options_.db_path)
                                  : open_log(log_, options_.db_path);
    if (wrong.empty()) wrong = select();
    if (!wrong.empty()) return fail(wrong);
    if (!out_.open(options_.output_path, options_.db_path)) return fail(out_.error());
    wrong = write(range);
    progress_.remove();
    if (!wrong.empty()) print_message(wrong);
    return print_damage(range) || !wrong.empty() ? FAILURE : SUCCESS;
  }

 private:
  /// Prints what --skip-damaged has left out. Returns whether there was something.
  bool print_damage(const std::pair<long, long>& range) {
    std::vector<CDamage> damage;
    // This fails only where no database is open.
    static_cast<void>(log_.get_damage(damage));
    std::erase_if(damage, [&](const CDamage& part) {
      return part.first != 0 && ((range.first >= 0 && part.last < range.first) ||
                                 (range.second >= 0 && part.first > range.second));
    });
    for (const CDamage& part : damage) {
      print_message("left out: " + describe_damage(part, options_.use_utc));
    }
    return !damage.empty();
  }

  /// Finds what the options name. Returns what is wrong, or an empty text.
  std::string select() {
    std::vector<CDeviceProperties> found;
    std::string wrong = select_devices(log_, options_.devices, found);
    if (wrong.empty()) wrong = select_periods(log_, options_.intervals, request_.periods);
    if (!wrong.empty()) return wrong;
    std::vector<std::vector<std::string>> names;
    bool can_be_named = options_.use_display_names;
    for (const CDeviceProperties& device : found) {
      ExportDevice one;
      one.selection.device = device;
      wrong = select_params(one.selection);
      if (!wrong.empty()) return wrong;
      // Of all devices, those count that have one of the parameters.
      if (one.selection.params.empty() && options_.all_devices && !options_.params.empty())
        continue;
      std::vector<std::string>& device_names = names.emplace_back();
      if (can_be_named) can_be_named = name_params(one.selection, true, device_names);
      devices_.push_back(std::move(one));
    }
    if (devices_.empty() && !options_.params.empty()) {
      return "no device has a parameter of -p; 'trendtool list -d' shows the parameters of a "
             "device";
    }
    columns_ = make_columns(names, devices_);
    return "";
  }

  std::string select_params(toolkit::trend::CDeviceParams& selection) {
    if (!options_.all_devices || options_.params.empty()) {
      return ::select_params(log_, selection.device, options_.params, selection.params);
    }
    std::string wrong = ::select_params(log_, selection.device, {}, selection.params);
    const auto is_unwanted = [&](const CParamProperties& param) {
      return std::find(options_.params.begin(), options_.params.end(), param.path) ==
             options_.params.end();
    };
    std::erase_if(selection.params, is_unwanted);
    return wrong;
  }

  std::unique_ptr<RowWriter> make_writer(const Export& what) {
    if (options_.format == ExportFormat::JSONL) return make_jsonl_writer(what, out_);
    if (options_.format == ExportFormat::XLSX) return make_xlsx_writer(what, out_);
    if (options_.format == ExportFormat::INFLUX) return make_influx_writer(what, out_);
    return options_.is_long ? make_long_csv_writer(what, out_) : make_csv_writer(what, out_);
  }

  /// Writes the file. Returns what is wrong with it, or an empty text.
  std::string write(const std::pair<long, long>& range) {
    const Export what = {options_, devices_, columns_};
    const std::unique_ptr<RowWriter> writer = make_writer(what);
    if (std::string wrong = writer->start(); !wrong.empty()) return wrong;
    for (const ExportDevice& device : devices_) {
      std::string wrong = writer->start_device(device);
      if (wrong.empty()) wrong = write_rows(device, range, *writer);
      if (wrong.empty() && out_.has_failed()) wrong = out_.error();
      if (!wrong.empty()) return wrong;
      ++done_;
    }
    if (std::string wrong = writer->finish(); !wrong.empty()) return wrong;
    return out_.finish() ? writer->describe_loss() : out_.error();
  }

  std::string write_rows(const ExportDevice& device, const std::pair<long, long>& range,
                         RowWriter& writer) {
    request_.selection = device.selection;
    request_.range = range;
    request_.limit = options_.limit;
    request_.ascending = options_.ascending;
    find_times();
    return read_rows(log_, request_, [&](const std::vector<CSnapshot>& rows) {
      for (const CSnapshot& row : rows) writer.write(row);
      rows_ += rows.size();
      progress_.show(rows_, get_share(rows.back().timestamp));
      return !out_.has_failed();
    });
  }

  /// Finds the times between which the rows of the device are, for the progress.
  void find_times() {
    first_ = 0;
    last_ = 0;
    std::vector<CSeriesSummary> series;
    if (!progress_.is_visible() || log_.get_series(request_.selection.device, series) != 0) return;
    for (const CSeriesSummary& one : series) {
      if (one.rows == 0) continue;
      first_ = first_ == 0 ? one.first_time : std::min(first_, one.first_time);
      last_ = std::max(last_, one.last_time);
    }
    const auto [start, end] = request_.range;
    if (start >= 0) first_ = std::max<std::int64_t>(first_, start);
    if (end >= 0) last_ = std::min<std::int64_t>(last_, end);
  }

  /// The share of the work that is done after the row at `time`.
  [[nodiscard]] double get_share(std::int64_t time) const {
    if (options_.limit > 0 || first_ >= last_) return -1;
    const double past = static_cast<double>(time - first_) / static_cast<double>(last_ - first_);
    const double share = options_.ascending ? past : 1 - past;
    return (static_cast<double>(done_) + share) / static_cast<double>(devices_.size());
  }

  const ExportOptions& options_;
  CLog log_;
  OutputFile out_;
  Progress progress_;
  RowRequest request_;
  std::vector<ExportDevice> devices_;
  std::vector<Column> columns_;
  std::uint64_t rows_ = 0;  ///< written so far
  std::size_t done_ = 0;    ///< devices
  std::int64_t first_ = 0;  ///< of the current device, 0 if not known
  std::int64_t last_ = 0;
};

}  // namespace

int run_export(const ExportOptions& options) { return Exporter(options).run(); }
