#include "trendtool/copy/row_batch.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <span>

#include "libtrend/statistics.h"
#include "text/csv.h"
#include "trendtool/common/statistic_names.h"

using toolkit::trend::CParamProperties;
using toolkit::trend::CSnapshot;
using toolkit::trend::get_slot;
using toolkit::trend::STATISTICS;

namespace {

// A transaction holds up other writers, and its rows take memory.
constexpr std::size_t MAX_ROWS = 50'000;
constexpr std::size_t MAX_VALUES = 4'000'000;

bool is_same(double a, double b) {
  if (std::isnan(a)) return std::isnan(b);
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

/// Returns `value` with as many digits as it needs.
std::string describe(double value) {
  if (std::isnan(value)) return "missing";
  std::array<char, 32> text;
  const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value);
  return {text.data(), end};
}

}  // namespace

ValueMap::ValueMap(const DeviceToCopy& device) : device_(device) {
  for (std::size_t param = 0; param < device.target.params.size(); ++param) {
    const CParamProperties& recorded = device.target.params[param];
    for (std::size_t i = 0; i < STATISTICS.size(); ++i) {
      if (!(recorded.*STATISTICS[i].flag)) continue;
      places_.push_back({param, i, STATISTICS[i].member, get_slot(recorded, i)});
      width_ = std::max(width_, places_.back().slot + 1);
    }
  }
}

void ValueMap::put(const CSnapshot& row, double* slots) const {
  for (const Place& place : places_) slots[place.slot] = row.samples[place.param].*place.member;
}

std::string ValueMap::find_difference(const CSnapshot& row, const CSnapshot& recorded) const {
  // A database may hold -0 as 0.
  if (!is_same(row.valid_ratio + 0.0, recorded.valid_ratio + 0.0)) {
    return "the share of valid data is " + describe(row.valid_ratio) + ", but " +
           describe(recorded.valid_ratio) + " is recorded";
  }
  for (const Place& place : places_) {
    const double value = row.samples[place.param].*place.member;
    const double other = recorded.samples[place.param].*place.member;
    if (is_same(value, other)) continue;
    return std::string(STATISTIC_NAMES[place.statistic]) + " of parameter " +
           quote(device_.source.params[place.param].path) + " is " + describe(value) + ", but " +
           describe(other) + " is recorded";
  }
  return "";
}

void RowBatch::clear() {
  times_.clear();
  valid_ratios_.clear();
  values_.clear();
}

void RowBatch::add(const CSnapshot& row) {
  times_.push_back(row.timestamp);
  valid_ratios_.push_back(row.valid_ratio);
  const std::size_t start = values_.size();
  values_.resize(start + map_.width(), std::numeric_limits<double>::quiet_NaN());
  map_.put(row, values_.data() + start);
}

bool RowBatch::is_full() const {
  return times_.size() >= std::min(MAX_ROWS, MAX_VALUES / std::max<std::size_t>(map_.width(), 1));
}

bool RowBatch::append(std::size_t index, const toolkit::trend::CSeries& series,
                      toolkit::trend::CRecorder& recorder) const {
  const auto slots = std::span(values_).subspan(index * map_.width(), map_.width());
  return recorder.append(series, times_[index], valid_ratios_[index], slots) == 0;
}
