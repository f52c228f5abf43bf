#include "libtrend/sqlite/row_buffer.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "libtrend/sqlite/column.h"

namespace toolkit::trend {

namespace {

/// The most bytes of values for which an empty buffer keeps memory.
constexpr std::size_t KEPT_BYTES = 16384;

}  // namespace

std::span<const double> trim(std::span<const double> slots) {
  while (!slots.empty() && std::isnan(slots.back())) slots = slots.first(slots.size() - 1);
  return slots;
}

bool RowBuffer::contains(std::int64_t time) const {
  if (empty() || time < first_time() || time > last_time()) return false;
  const auto found =
      std::lower_bound(order_.begin(), order_.end(), time,
                       [](const Entry& entry, std::int64_t t) { return entry.time < t; });
  return found->time == time;
}

/// Makes all rows as wide as `slots`.
void RowBuffer::widen(std::size_t slots) {
  std::vector<double> values(slots * size(), MISSING_VALUE);
  for (std::size_t row = 0; row < size(); ++row) {
    std::copy_n(values_.begin() + static_cast<std::ptrdiff_t>(row * slots_), slots_,
                values.begin() + static_cast<std::ptrdiff_t>(row * slots));
  }
  values_ = std::move(values);
  slots_ = slots;
}

void RowBuffer::add(std::int64_t time, double valid_ratio, std::span<const double> slots) {
  const std::span<const double> trimmed = trim(slots);
  if (trimmed.size() > slots_) widen(trimmed.size());
  const Entry entry = {time, size()};
  is_descending_ = !empty() && time < first_time();
  if (empty() || time > last_time()) {
    order_.push_back(entry);
  } else if (is_descending_) {
    order_.push_front(entry);
  } else {
    ++inner_;
    const auto next = std::upper_bound(order_.begin(), order_.end(), time,
                                       [](std::int64_t t, const Entry& e) { return t < e.time; });
    order_.insert(next, entry);
  }
  valid_ratios_.push_back(valid_ratio);
  values_.insert(values_.end(), trimmed.begin(), trimmed.end());
  values_.resize(slots_ * size(), MISSING_VALUE);
}

BlockRows RowBuffer::copy(std::size_t place, std::size_t count) const {
  BlockRows rows;
  rows.slots = slots_;
  rows.times.reserve(count);
  rows.valid_ratios.reserve(count);
  rows.values.resize(slots_ * count);
  for (std::size_t i = 0; i < count; ++i) {
    rows.times.push_back(time(place + i));
    rows.valid_ratios.push_back(valid_ratio(place + i));
    const std::span<const double> row = values(place + i);
    for (std::size_t slot = 0; slot < slots_; ++slot) rows.values[slot * count + i] = row[slot];
  }
  return rows;
}

void RowBuffer::remove(std::size_t place, std::size_t count) {
  RowBuffer rest;
  for (std::size_t i = 0; i < size(); ++i) {
    if (i < place || i >= place + count) rest.add(time(i), valid_ratio(i), values(i));
  }
  rest.is_descending_ = is_descending_;
  *this = std::move(rest);
}

void RowBuffer::clear() {
  order_.clear();
  valid_ratios_.clear();
  values_.clear();
  slots_ = 0;
  inner_ = 0;
  if (values_.capacity() > KEPT_BYTES / sizeof(double)) *this = RowBuffer();
}

}  // namespace toolkit::trend
