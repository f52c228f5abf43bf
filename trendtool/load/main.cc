// Records CSV in the layout that trendcsv prints into a trend database.
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cli/options.h"
#include "columns/statistics.h"
#include "libtrend/recorder.h"
#include "text/line_reader.h"
#include "trendtool/load/csv_layout.h"
#include "trendtool/load/row_clock.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

constexpr const char* USAGE =
    "Usage: trendload -x <db> -d <device> -i <minutes> [-t <input_time_fmt>] [-u] [<file>]\n"
    "Records the CSV in <file>, or on standard input, into a trend database. Its layout is that\n"
    "of trendcsv with parameter paths: Date, Time, Percent Valid if need be, and one column per\n"
    "parameter and statistic, named like outdoor/temperature:.ValueIntMin.\n"
    "\t-x: Record into the trend database <db>; it is created if it does not exist.\n"
    "\t-d: Record for the device with this path; it is added if it does not exist.\n"
    "\t-i: The rows summarise intervals of this many minutes and are stamped with their end.\n"
    "\t-t: The strptime() format of date and time, joined by a blank. Default: \"%s\".\n"
    "\t    A time zone in it counts for nothing.\n"
    "\t-u: Dates and times are in UTC; the default is the local time zone.\n"
    "\t-h: Print this text.\n"
    "All rows are recorded or, when one of them is bad, none.\n";

struct LoadOptions {
  std::string db_path;
  std::string device;
  std::uint32_t minutes = 0;
  std::string time_format = DEFAULT_INPUT_TIME_FORMAT;
  bool use_utc = false;
  std::string input_path = "-";
};

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// Shows on a terminal how far a long load has come.
class Progress {
 public:
  void show(std::size_t rows) {
    constexpr std::size_t STEP = 4096;
    if (rows % STEP != 0 || !is_terminal_) return;
    std::fprintf(stderr, "\rtrendload: %zu rows", rows);
    is_shown_ = true;
  }
  ~Progress() {
    if (is_shown_) std::fputc('\n', stderr);
  }

 private:
  bool is_terminal_ = isatty(STDERR_FILENO) == 1;
  bool is_shown_ = false;
};

/// Where a value stands in a row's slots.
std::size_t slot_of(const CParamProperties& param, std::size_t statistic) {
  std::size_t slot = param.aux_1;
  for (std::size_t i = 0; i < statistic; ++i) slot += param.*STATISTICS[i].flag ? 1 : 0;
  return slot;
}

std::string join_time(const std::vector<std::string_view>& fields) {
  return std::string(fields[0]) + " " + std::string(fields[1]);
}

/// Loads one file into an open database. The functions give what is wrong with the input, nothing
/// when it is good.
class Loader {
 public:
  Loader(const LoadOptions& options, CRecorder& recorder, const Layout& layout)
      : options_(options),
        recorder_(recorder),
        layout_(layout),
        clock_(options.time_format, options.use_utc) {}

  /// Adds the device, its parameters and the series as needed; false where the recorder fails.
  [[nodiscard]] bool prepare() {
    CDeviceProperties device;
    device.path = options_.device;
    if (recorder_.add_device(device) != 0) return false;
    for (CParamProperties& param : params_) {
      if (recorder_.add_param(device, param) != 0) return false;
    }
    return recorder_.add_series(device, options_.minutes, series_) == 0;
  }

  /// Finds the slots of the columns.
  [[nodiscard]] std::string find_slots() {
    std::size_t slots = 0;
    for (const ValueColumn& column : layout_.columns) {
      const CParamProperties& param = params_[column.param];
      if (!(param.*STATISTICS[column.statistic].flag)) {
        return "parameter " + quote(param.path) + " is recorded without " +
               STATISTICS[column.statistic].path_suffix;
      }
      slots_.push_back(slot_of(param, column.statistic));
      slots = std::max(slots, slots_.back() + 1);
    }
    values_.assign(slots, std::numeric_limits<double>::quiet_NaN());
    return "";
  }

  /// Takes a line to come into account, see `RowClock`; returns whether it should see another.
  bool look_ahead(std::string_view line) {
    const std::vector<std::string_view> fields = split_fields(line);
    return fields.size() >= 2 && clock_.look_ahead(join_time(fields));
  }

  /// Records one line.
  [[nodiscard]] std::string load_row(std::string_view line) {
    const std::vector<std::string_view> fields = split_fields(line);
    const std::size_t wanted = layout_.fixed_fields() + layout_.columns.size();
    if (fields.size() != wanted) {
      return std::to_string(fields.size()) + " fields where the header has " +
             std::to_string(wanted);
    }
    std::time_t time = 0;
    if (std::string wrong = clock_.convert(join_time(fields), time); !wrong.empty()) return wrong;
    double ratio = 1;
    if (layout_.has_percent && !read_percent(fields[2], ratio)) {
      return quote(fields[2]) + " is no percentage from 0 to 100";
    }
    for (std::size_t i = 0; i < slots_.size(); ++i) {
      const std::string_view field = fields[layout_.fixed_fields() + i];
      if (!read_value(field, values_[slots_[i]])) {
        return quote(field) + " is no number";
      }
    }
    return recorder_.append(series_, time, ratio, values_) == 0 ? "" : recorder_.error();
  }

 private:
  const LoadOptions& options_;
  CRecorder& recorder_;
  const Layout& layout_;
  RowClock clock_;
  CSeries series_;
  std::vector<CParamProperties> params_ = layout_.params;  ///< as they are recorded
  std::vector<std::size_t> slots_;                         ///< by column
  std::vector<double> values_;                             ///< by slot
};

int fail(const std::string& where, const std::string& wrong) {
  std::fprintf(stderr, "trendload: %s: %s\n", where.c_str(), wrong.c_str());
  return 1;
}

/// Loads the lines behind the header. Gives what is wrong with the last one read, or nothing.
std::string load_rows(Loader& loader, LineReader& lines) {
  Progress progress;
  std::string_view line;
  while (lines.look_ahead(line) && loader.look_ahead(line)) {
  }
  while (lines.next(line)) {
    if (std::string wrong = loader.load_row(line); !wrong.empty()) return wrong;
    progress.show(lines.number() - 1);
  }
  return "";
}

int load(const LoadOptions& options, CRecorder& recorder, const Layout& layout, LineReader& lines) {
  const auto place = [&] { return options.input_path + ":" + std::to_string(lines.number()); };
  if (recorder.begin() != 0) return fail(options.db_path, recorder.error());
  Loader loader(options, recorder, layout);
  if (!loader.prepare()) return fail(options.db_path, recorder.error());
  if (std::string wrong = loader.find_slots(); !wrong.empty()) return fail(place(), wrong);
  if (std::string wrong = load_rows(loader, lines); !wrong.empty()) return fail(place(), wrong);
  if (lines.has_failed()) return fail(options.input_path, std::strerror(errno));
  return recorder.commit() == 0 ? 0 : fail(options.db_path, recorder.error());
}

/// Loads the whole input into the database, or leaves everything as it was.
int run(const LoadOptions& options) {
  const bool is_piped = options.input_path == "-";
  const File file(is_piped ? nullptr : std::fopen(options.input_path.c_str(), "r"));
  if (!is_piped && !file) return fail(options.input_path, std::strerror(errno));
  LineReader lines(is_piped ? stdin : file.get());
  std::string_view header;
  if (!lines.next(header)) {
    return lines.has_failed() ? fail(options.input_path, std::strerror(errno))
                              : fail(options.input_path + ":1", "the header is missing");
  }
  Layout layout;
  if (std::string wrong = read_header(header, layout); !wrong.empty()) {
    return fail(options.input_path + ":1", wrong);
  }

  CRecorder recorder;
  if (recorder.open(options.db_path) != 0) return fail(options.db_path, recorder.error());
  return load(options, recorder, layout, lines);
}

bool parse_minutes(const char* text, std::uint32_t& minutes) {
  const char* end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, minutes);
  return error == std::errc() && stop == end && minutes > 0;
}

/// Reads the command line; false, after a message, where it is bad.
bool parse_options(int argc, char** argv, LoadOptions& options) {
  const auto refuse = [](const char* wrong) {
    std::fprintf(stderr, "trendload: %s; 'trendload -h' explains the options\n", wrong);
    return false;
  };
  for (int option = 0; (option = getopt(argc, argv, "x:d:i:t:uh")) != -1;) {
    switch (option) {
      case 'x':
        options.db_path = optarg;
        break;
      case 'd':
        options.device = optarg;
        break;
      case 'i':
        if (!parse_minutes(optarg, options.minutes)) return refuse("-i takes a number of minutes");
        break;
      case 't':
        options.time_format = optarg;
        break;
      case 'u':
        options.use_utc = true;
        break;
      case 'h':
        std::printf(USAGE, DEFAULT_INPUT_TIME_FORMAT.c_str());
        std::exit(0);
      default:
        return refuse("the command line is wrong");
    }
  }
  if (options.db_path.empty()) return refuse("-x, the database, is missing");
  if (options.device.empty()) return refuse("-d, the device, is missing");
  if (options.minutes == 0) return refuse("-i, the interval in minutes, is missing");
  if (argc - optind > 1) return refuse("there is more than one file");
  if (optind < argc) options.input_path = argv[optind];
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    LoadOptions options;
    return parse_options(argc, argv, options) ? run(options) : 1;
  } catch (const std::exception&) {
    std::fputs("trendload: out of memory\n", stderr);
    return 1;
  }
}
