#include "trendtool/plot/shapes.h"

#include <cmath>
#include <cstddef>
#include <initializer_list>

#include "trendtool/plot/gnuplot_text.h"

using toolkit::trend::CParamProperties;

namespace {

// The places in STATISTICS.
constexpr std::size_t MIN = 0;
constexpr std::size_t MAX = 1;
constexpr std::size_t AVG = 2;
constexpr std::size_t ACTUAL = 3;
constexpr std::size_t SUM = 4;

/// The first of the values that is not missing, or NaN.
double first_present(std::initializer_list<double> values) {
  for (const double value : values) {
    if (!std::isnan(value)) return value;
  }
  return *values.begin();
}

/// The edges of the band in a column.
double low_edge(const PlotColumn& column) {
  const auto& values = column.values;
  return first_present({values[MIN].low, values[AVG].low, values[MAX].low});
}

double high_edge(const PlotColumn& column) {
  const auto& values = column.values;
  return first_present({values[MAX].high, values[AVG].high, values[MIN].high});
}

/// Appends one line of data.
template <typename... Numbers>
void append_line(std::string& points, std::int64_t time, Numbers... numbers) {
  append_number(points, time);
  ((points += ' ', append_number(points, numbers)), ...);
  points += '\n';
}

/// Appends the lines of each column by `append_column`, which appends nothing for a column without
/// values, and empty lines for gaps.
template <typename Append>
std::string join_columns(const std::vector<PlotColumn>& columns, Append append_column) {
  std::string points;
  const PlotColumn* before = nullptr;
  for (const PlotColumn& column : columns) {
    std::string lines;
    append_column(column, lines);
    if (!lines.empty() && before != nullptr && is_gap_between(*before, column)) points += '\n';
    // A column without values is a gap too.
    if (lines.empty() && before != nullptr) points += '\n';
    before = lines.empty() ? nullptr : &column;
    points += lines;
  }
  return points;
}

std::string band_points(const std::vector<PlotColumn>& columns) {
  return join_columns(columns, [](const PlotColumn& column, std::string& lines) {
    const double low = low_edge(column);
    const double high = high_edge(column);
    if (std::isnan(low)) return;
    append_line(lines, column.start, low, high);
    append_line(lines, column.end, low, high);
  });
}

std::string line_points(const std::vector<PlotColumn>& columns, std::size_t statistic) {
  return join_columns(columns, [statistic](const PlotColumn& column, std::string& lines) {
    const double mean = column.values[statistic].mean;
    if (std::isnan(mean)) return;
    append_line(lines, column.start, mean);
    append_line(lines, column.end, mean);
  });
}

/// Within a column of several rows, the line goes from the lowest to the highest value, so that no
/// short peak is lost.
std::string step_points(const std::vector<PlotColumn>& columns) {
  return join_columns(columns, [](const PlotColumn& column, std::string& lines) {
    const Extent& actual = column.values[ACTUAL];
    if (std::isnan(actual.low)) return;
    append_line(lines, column.start, actual.low);
    append_line(lines, column.end, actual.high);
  });
}

/// `is_extent` chooses between boxes from the lowest to the highest sum, and boxes from 0 to their
/// mean.
std::string sum_points(const std::vector<PlotColumn>& columns, bool is_extent) {
  std::string points;
  for (const PlotColumn& column : columns) {
    const Extent& sum = column.values[SUM];
    if (std::isnan(sum.low) || (is_extent && sum.low == sum.high)) continue;
    if (is_extent) {
      append_line(points, column.start, column.end, sum.low, sum.high);
    } else {
      append_line(points, column.start, column.end, std::fmin(sum.mean, 0), std::fmax(sum.mean, 0));
    }
  }
  return points;
}

std::string band_label(const CParamProperties& param) {
  if (param.has_min && param.has_max) return "min to max";
  if (param.has_avg && param.has_max) return "average to max";
  if (param.has_avg && param.has_min) return "min to average";
  return "range";
}

bool has_band(const std::vector<PlotColumn>& columns) {
  for (const PlotColumn& column : columns) {
    if (low_edge(column) < high_edge(column)) return true;
  }
  return false;
}

}  // namespace

std::vector<ShapeData> make_shapes(const PlotSeries& series) {
  const CParamProperties& param = series.param;
  const std::vector<PlotColumn>& columns = series.columns;
  std::vector<ShapeData> shapes;
  const auto add = [&shapes](Shape shape, const std::string& label, std::string points) {
    if (!points.empty()) shapes.push_back({shape, label, std::move(points)});
  };
  add(Shape::SUM_EXTENT, "", sum_points(columns, true));
  add(Shape::SUM, "sum", sum_points(columns, false));
  const bool has_both = param.has_min && param.has_max;
  if (has_both || has_band(columns)) add(Shape::BAND, band_label(param), band_points(columns));
  if (param.has_avg) {
    add(Shape::LINE, "average", line_points(columns, AVG));
  } else if (has_both) {
    // Nothing is seen of a band where both values are the same.
    add(Shape::EDGE, "", line_points(columns, MIN));
    add(Shape::EDGE, "", line_points(columns, MAX));
  } else if (param.has_min != param.has_max) {
    add(Shape::LINE, param.has_min ? "minimum" : "maximum",
        line_points(columns, param.has_min ? MIN : MAX));
  }
  add(Shape::STEPS, "actual", step_points(columns));
  return shapes;
}
