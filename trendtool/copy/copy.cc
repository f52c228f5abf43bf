#include "trendtool/copy/copy.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <system_error>
#include <utility>

#include "text/csv.h"
#include "trendtool/common/interrupts.h"
#include "trendtool/common/messages.h"
#include "trendtool/common/output_file.h"
#include "trendtool/common/progress.h"
#include "trendtool/common/selection.h"
#include "trendtool/common/times.h"
#include "trendtool/copy/catalogue.h"
#include "trendtool/copy/series_copy.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CPeriodProperties;
using toolkit::trend::CSeriesSummary;

namespace {

/// One run of the subcommand. Functions that return a string return what is wrong, for a message,
/// or an empty text.
class Copy {
 public:
  Copy(const CopyOptions& options, std::string from, std::string to)
      : options_(options), from_(std::move(from)), to_(std::move(to)) {
    session_.compares_all = options.compares_all;
    session_.use_utc = options.use_utc;
  }

  /// Returns the exit status.
  int run(std::int64_t start) {
    session_.start = std::max<std::int64_t>(start, 1);
    std::string wrong = open_source();
    // Opening the other database may create it, so what is to be copied must be there.
    if (wrong.empty()) wrong = read_catalogue();
    if (wrong.empty()) wrong = open_target();
    if (wrong.empty()) {
      wrong = copy_catalogue(session_.recorder, session_.uuid, options_.prefix, devices_);
    }
    if (!wrong.empty()) return fail(wrong);
    copy_devices();
    const int told = print_result(describe_counts());
    if (is_interrupted()) print_message("interrupted; the next copy goes on from here");
    if (told != SUCCESS) return told;
    return is_complete_ && counts_.conflicts == 0 ? SUCCESS : FAILURE;
  }

 private:
  std::string open_source();
  std::string read_catalogue();
  std::string open_target();
  void copy_devices();
  bool copy_device(const DeviceToCopy& device, Progress& progress);
  void show_progress(Progress& progress) const;
  [[nodiscard]] std::string describe_counts() const;

  [[nodiscard]] std::string refuse_same() const {
    return quote(from_) + " and " + quote(to_) + " are the same database";
  }
  /// Says that something could not be copied.
  void note_failure(const std::string& text) {
    print_message(text);
    is_complete_ = false;
  }

  const CopyOptions& options_;
  std::string from_;
  std::string to_;
  CopySession session_;
  std::vector<DeviceToCopy> devices_;
  CopyCounts counts_;
  std::uint64_t series_ = 0;          ///< that were copied
  std::uint64_t rows_ = 0;            ///< that were read
  std::uint64_t passed_rows_ = 0;     ///< of the series that were copied
  std::uint64_t rows_in_series_ = 0;  ///< that were read of the current series
  std::uint64_t total_rows_ = 0;
  bool is_complete_ = true;
};

std::string Copy::open_source() {
  std::error_code ignored;
  if (std::filesystem::equivalent(from_, to_, ignored)) return refuse_same();
  if (std::string wrong = open_log(session_.from, from_); !wrong.empty()) return wrong;
  if (session_.from.get_uuid(session_.uuid) == 0) return "";
  return "can't read the database " + quote(from_) + ": " + session_.from.error();
}

std::string Copy::open_target() {
  if (session_.recorder.open(to_) != 0) {
    return "can't open the database " + quote(to_) + ": " + session_.recorder.error();
  }
  if (std::string wrong = open_log(session_.to, to_); !wrong.empty()) return wrong;
  std::string uuid;
  if (session_.to.get_uuid(uuid) != 0) {
    return "can't read the database " + quote(to_) + ": " + session_.to.error();
  }
  // A copy of a file has the same id, and may lack rows of the other or have more.
  std::error_code ignored;
  const bool are_files =
      std::filesystem::exists(from_, ignored) && std::filesystem::exists(to_, ignored);
  return !are_files && uuid == session_.uuid ? refuse_same() : "";
}

/// Reads what is to be copied.
std::string Copy::read_catalogue() {
  std::vector<CDeviceProperties> found;
  if (std::string wrong = select_devices(session_.from, options_.devices, found); !wrong.empty()) {
    return wrong;
  }
  std::vector<CPeriodProperties> periods;
  std::vector<std::uint32_t> minutes;
  if (!options_.minutes.empty()) {
    std::string wrong = select_periods(session_.from, options_.minutes, periods);
    if (!wrong.empty()) return wrong;
  }
  minutes.reserve(periods.size());
  for (const CPeriodProperties& period : periods) minutes.push_back(period.interval);
  for (const CDeviceProperties& device : found) {
    DeviceToCopy entry;
    entry.source.device = device;
    if (std::string wrong = read_device(session_.from, minutes, entry); !wrong.empty()) {
      note_failure(wrong);
      continue;
    }
    for (const SeriesToCopy& series : entry.series) total_rows_ += series.source.rows;
    devices_.push_back(std::move(entry));
  }
  return "";
}

void Copy::copy_devices() {
  Progress progress;
  for (const DeviceToCopy& device : devices_) {
    for (const std::string& conflict : device.conflicts) print_message("conflict: " + conflict);
    counts_.conflicts += device.conflicts.size();
    if (!device.note.empty()) print_message(device.note);
    if (!copy_device(device, progress)) return;
  }
}

/// Copies the rows of a device. Returns whether others can be copied after it.
bool Copy::copy_device(const DeviceToCopy& device, Progress& progress) {
  std::vector<CSeriesSummary> recorded;
  if (!device.series.empty() && session_.to.get_series(device.target.device, recorded) != 0) {
    note_failure("can't read the series of device " + quote(device.target.device.path) + ": " +
                 session_.to.error());
    return false;
  }
  for (const SeriesToCopy& series : device.series) {
    const auto same = std::find_if(
        recorded.begin(), recorded.end(),
        [&](const CSeriesSummary& one) { return one.minutes == series.source.minutes; });
    const std::int64_t last_time = same == recorded.end() ? 0 : same->last_time;
    SeriesCopy copy(session_, device, series, last_time, counts_);
    rows_in_series_ = 0;
    const SeriesCopy::Result result = copy.run([&] {
      ++rows_;
      ++rows_in_series_;
      show_progress(progress);
    });
    if (result == SeriesCopy::Result::INTERRUPTED) return false;
    if (result != SeriesCopy::Result::DONE) note_failure(copy.error());
    if (result == SeriesCopy::Result::TO_FAILED) return false;
    // One series may be damaged. If not even the id can be read, no other series can.
    std::string uuid;
    if (result == SeriesCopy::Result::FROM_FAILED && session_.from.get_uuid(uuid) != 0)
      return false;
    // This can be where time_t or long has 32 bits.
    if (series.source.last_time > latest_time()) {
      note_failure("device " + quote(device.source.device.path) +
                   " has rows at times that this system can't represent; they are not copied");
    }
    if (result == SeriesCopy::Result::DONE) ++series_;
    passed_rows_ += series.source.rows;
  }
  return true;
}

void Copy::show_progress(Progress& progress) const {
  constexpr std::uint64_t STEP = 1024;
  if (rows_ % STEP != 0 || !progress.is_visible()) return;
  const auto done = static_cast<double>(passed_rows_ + rows_in_series_);
  const double share = done / static_cast<double>(std::max<std::uint64_t>(total_rows_, 1));
  progress.show(rows_, std::min(share, 1.0));
}

std::string Copy::describe_counts() const {
  return "devices: " + std::to_string(devices_.size()) + ", series: " + std::to_string(series_) +
         ", rows copied: " + std::to_string(counts_.copied) +
         ", rows there before: " + std::to_string(counts_.present) +
         ", conflicts: " + std::to_string(counts_.conflicts) + "\n";
}

}  // namespace

int run_copy(const CopyOptions& options) {
  const bool is_named = !options.from.empty();
  if (options.first.empty() || options.second.empty() != is_named) {
    return refuse_usage(is_named
                            ? "with -x, name one more database, the one to copy into"
                            : "name two databases, the one to copy from and the one to copy into");
  }
  std::pair<long, long> range;
  if (std::string wrong = read_range(options.start, "", options.use_utc, range); !wrong.empty()) {
    return refuse_usage("--start: " + wrong);
  }
  note_interrupts();
  const int status = is_named ? Copy(options, options.from, options.first).run(range.first)
                              : Copy(options, options.first, options.second).run(range.first);
  // Only now, as the databases are closed.
  end_if_interrupted();
  return status;
}
