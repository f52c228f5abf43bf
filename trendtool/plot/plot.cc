#include "trendtool/plot/plot.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <utility>

#include "libtrend/log.h"
#include "text/csv.h"
#include "trendtool/common/messages.h"
#include "trendtool/common/output_file.h"
#include "trendtool/common/progress.h"
#include "trendtool/common/rows.h"
#include "trendtool/common/selection.h"
#include "trendtool/common/times.h"
#include "trendtool/plot/gnuplot.h"
#include "trendtool/plot/layout.h"
#include "trendtool/plot/script.h"

using toolkit::trend::CDeviceParams;
using toolkit::trend::CDeviceProperties;
using toolkit::trend::CLog;
using toolkit::trend::CSnapshot;

namespace {

/// How many columns of a curve are in memory: more than a usual picture shows.
constexpr std::size_t MOST_COLUMNS = 4096;
/// How many parameters are drawn if the user names none, and at most.
constexpr std::size_t USUAL_PARAMS = 8;
constexpr std::size_t MOST_PARAMS = 64;

/// Sets `format` to the format that the end of a file's name stands for. Returns false if it stands
/// for none.
bool format_of_name(const std::string& path, PictureFormat& format) {
  constexpr std::pair<const char*, PictureFormat> ENDINGS[] = {
      {".png", PictureFormat::PNG}, {".svg", PictureFormat::SVG}, {".pdf", PictureFormat::PDF}};
  std::string name = path;
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  for (const auto& [ending, its_format] : ENDINGS) {
    if (!name.ends_with(ending)) continue;
    format = its_format;
    return true;
  }
  return false;
}

/// Sets the format and the size of `picture`. Returns what is wrong, or an empty text.
std::string choose_format(const PlotOptions& options, Picture& picture) {
  picture.format = options.format.value_or(PictureFormat::TEXT);
  if (!options.format && !options.output_path.empty() &&
      !format_of_name(options.output_path, picture.format)) {
    return "can't tell the format of " + quote(options.output_path) +
           "; use a name that ends in .png, .svg or .pdf, or --format";
  }
  picture.width = options.width;
  picture.height = options.height;
  winsize size = {};
  const bool is_text = picture.format == PictureFormat::TEXT;
  if (is_text && options.output_path.empty() && picture.width == 0 &&
      ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) {
    picture.width = size.ws_col;
    // The last line is for what is typed next.
    picture.height = size.ws_row - 1;
  }
  // Less would not leave room for the numbers at the axes.
  const int least_width = is_text ? 40 : 500;
  const int least_height = is_text ? 15 : 300;
  constexpr int MOST = 20000;
  const auto is_between = [](int value, int least) { return value >= least && value <= MOST; };
  if (options.width != 0 &&
      !(is_between(picture.width, least_width) && is_between(picture.height, least_height))) {
    return "a picture of this format has a size from " + std::to_string(least_width) + "x" +
           std::to_string(least_height) + " to " + std::to_string(MOST) + "x" +
           std::to_string(MOST);
  }
  if (picture.width != 0) picture.width = std::max(picture.width, least_width);
  if (picture.height != 0) picture.height = std::max(picture.height, least_height);
  return "";
}

/// Finds what the user wants to see. Returns what is wrong, or an empty text.
std::string select(CLog& log, const PlotOptions& options, RowRequest& request) {
  std::vector<std::string> names;
  if (!options.device.empty()) names.push_back(options.device);
  std::vector<CDeviceProperties> devices;
  if (std::string wrong = select_devices(log, names, devices); !wrong.empty()) return wrong;
  if (devices.empty()) return "the database " + quote(options.db_path) + " has no devices";
  CDeviceParams& selection = request.selection;
  selection.device = devices.front();
  if (devices.size() > 1) {
    print_message("drawing " + quote(selection.device.path) + ", the first of " +
                  std::to_string(devices.size()) + " devices; choose another one with -d");
  }
  if (std::string wrong = select_params(log, selection.device, options.params, selection.params);
      !wrong.empty()) {
    return wrong;
  }
  if (selection.params.size() > MOST_PARAMS && !options.params.empty()) {
    return "a picture shows at most " + std::to_string(MOST_PARAMS) + " parameters";
  }
  if (selection.params.size() > USUAL_PARAMS && options.params.empty()) {
    print_message("drawing the first " + std::to_string(USUAL_PARAMS) + " of " +
                  std::to_string(selection.params.size()) + " parameters; choose others with -p");
    selection.params.resize(USUAL_PARAMS);
  }
  return select_periods(log, options.intervals, request.periods);
}

/// Tells how much of the rows has been read, newest first.
class Share {
 public:
  Share(CLog& log, const RowRequest& request) {
    std::vector<toolkit::trend::CSeriesSummary> series;
    // Without this, the share is unknown.
    if (request.limit != 0 || log.get_series(request.selection.device, series) != 0) return;
    for (const auto& summary : series) {
      if (summary.rows == 0) continue;
      oldest_ = std::min(oldest_ < 0 ? summary.first_time : oldest_, summary.first_time);
    }
    oldest_ = std::max(oldest_, std::int64_t{request.range.first});
  }

  /// The share that is read when `time` is reached, or -1.
  [[nodiscard]] double at(std::int64_t time) {
    if (newest_ < 0) newest_ = time;
    if (oldest_ < 0 || newest_ <= oldest_) return -1;
    return static_cast<double>(newest_ - time) / static_cast<double>(newest_ - oldest_);
  }

 private:
  std::int64_t oldest_ = -1;
  std::int64_t newest_ = -1;
};

/// Reads the rows into the series of `picture`. Returns what is wrong, or an empty text.
std::string read_series(CLog& log, const RowRequest& request, Picture& picture) {
  std::vector<Curve> curves(picture.series.size(), Curve(MOST_COLUMNS));
  Progress progress;
  Share share(log, request);
  std::uint64_t count = 0;
  std::string wrong = read_rows(log, request, [&](const std::vector<CSnapshot>& rows) {
    for (const CSnapshot& row : rows) {
      for (std::size_t i = 0; i < curves.size(); ++i) curves[i].add(row, row.samples[i]);
    }
    count += rows.size();
    progress.show(count, share.at(rows.back().timestamp));
    return true;
  });
  progress.remove();
  if (!wrong.empty()) return wrong;
  for (std::size_t i = 0; i < curves.size(); ++i) {
    const PlotSeries& series = picture.series[i];
    if (curves[i].undrawable_count() > 0) {
      print_message(std::to_string(curves[i].undrawable_count()) + " values of " +
                    quote(series.param.path) + " are infinite or too large, and not drawn");
    }
    picture.range.add(curves[i].range());
  }
  const std::int64_t seconds = (picture.range.end - picture.range.start) / time_axis_width(picture);
  for (std::size_t i = 0; i < curves.size(); ++i) {
    curves[i].join_slices(seconds);
    picture.series[i].columns = curves[i].take_columns();
  }
  if (!picture.range.is_empty()) return "";
  return "there is nothing to draw: device " + quote(request.selection.device.path) +
         " has no values at these times and intervals";
}

}  // namespace

int run_plot(const PlotOptions& options) {
  Picture picture;
  if (const std::string wrong = choose_format(options, picture); !wrong.empty()) {
    return refuse_usage(wrong);
  }
  RowRequest request;
  request.limit = options.limit;
  if (const std::string wrong =
          read_range(options.start, options.end, options.use_utc, request.range);
      !wrong.empty()) {
    return refuse_usage(wrong);
  }
  CLog log;
  if (const std::string wrong = open_log(log, options.db_path); !wrong.empty()) return fail(wrong);
  if (const std::string wrong = select(log, options, request); !wrong.empty()) return fail(wrong);
  OutputFile out;
  if (!out.open(options.output_path, options.db_path)) return fail(out.error());

  picture.title = request.selection.device.path;
  picture.together = options.together;
  picture.use_utc = options.use_utc;
  std::vector<std::string> names;
  name_params(request.selection, options.use_display_names, names);
  for (std::size_t i = 0; i < names.size(); ++i) {
    picture.series.push_back({names[i], request.selection.params[i], {}});
  }
  if (const std::string wrong = read_series(log, request, picture); !wrong.empty()) {
    return fail(wrong);
  }
  std::string drawn;
  if (const std::string wrong = run_gnuplot(make_script(picture), drawn); !wrong.empty()) {
    return fail(wrong);
  }
  // gnuplot starts a page of text with a form feed.
  if (drawn.starts_with('\f')) drawn.erase(0, 1);
  out.add(drawn);
  return out.finish() ? SUCCESS : fail(out.error());
}
