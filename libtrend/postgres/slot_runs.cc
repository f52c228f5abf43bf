#include "libtrend/postgres/slot_runs.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <span>

#include "libtrend/postgres/wire.h"
#include "libtrend/query/bytes.h"
#include "libtrend/statistics.h"

namespace toolkit::trend {

namespace {

constexpr double LACKING = std::numeric_limits<double>::quiet_NaN();
/// More columns than this cost more than the slots between the runs.
constexpr std::size_t MAX_RUNS = 32;

/// Unpacks an array of float8 in PostgreSQL's binary form into `values`, which it does not fill
/// where it is shorter.
bool unpack_array(std::span<const unsigned char> bytes, std::span<double> values) {
  constexpr std::size_t NUMBER = sizeof(std::uint32_t);
  constexpr std::size_t HEAD = 3 * NUMBER;       // dimensions, whether there are NULLs, type
  constexpr std::size_t DIMENSION = 2 * NUMBER;  // length, lowest index
  if (bytes.size() < HEAD || load<std::uint32_t>(&bytes[2 * NUMBER]) != TYPE_OF_FLOAT8) {
    return false;
  }
  const std::uint32_t dimensions = load<std::uint32_t>(bytes.data());
  if (dimensions == 0) return true;
  if (dimensions != 1 || bytes.size() < HEAD + DIMENSION ||
      load<std::uint32_t>(&bytes[HEAD + NUMBER]) != 1) {
    return false;
  }
  const unsigned char* next = &bytes[HEAD] + DIMENSION;
  const unsigned char* const end = bytes.data() + bytes.size();
  const std::size_t count = std::min<std::size_t>(load<std::uint32_t>(&bytes[HEAD]), values.size());
  for (std::size_t i = 0; i < count; ++i) {
    if (end - next < static_cast<std::ptrdiff_t>(NUMBER)) return false;
    const std::uint32_t length = load<std::uint32_t>(next);
    next += NUMBER;
    if (length == std::numeric_limits<std::uint32_t>::max()) continue;  // NULL
    if (length != sizeof(double) || end - next < static_cast<std::ptrdiff_t>(length)) return false;
    values[i] = std::bit_cast<double>(load<std::uint64_t>(next));
    next += length;
  }
  return true;
}

/// Returns SQL for `slice`, the first `count` slots, or for all slots where there are hardly more.
/// To cut an array costs the server more than to send some values more, and its stored size is
/// known without unpacking it.
std::string prefer_whole(const std::string& slice, std::size_t count) {
  constexpr std::size_t HEAD = 24;  // of an array with one dimension
  const std::string size = std::to_string(HEAD + sizeof(double) * count);
  return "CASE WHEN pg_column_size(samples) <= " + size + " THEN samples ELSE " + slice + " END";
}

}  // namespace

SlotRuns::SlotRuns(const std::vector<CParamProperties>& params) : params_(params.size()) {
  for (const CParamProperties& param : params) {
    runs_.push_back({param.aux_1, get_slot(param, STATISTICS.size())});
  }
  const auto by_place = [](const Run& a, const Run& b) { return a.first < b.first; };
  std::sort(runs_.begin(), runs_.end(), by_place);
  const auto join = [&](bool with_gaps) {
    std::vector<Run> joined;
    for (const Run& run : runs_) {
      if (run.first == run.end) continue;
      if (!joined.empty() && (with_gaps || run.first <= joined.back().end)) {
        joined.back().end = std::max(joined.back().end, run.end);
      } else {
        joined.push_back(run);
      }
    }
    runs_ = joined;
  };
  join(false);
  if (runs_.size() > MAX_RUNS) join(true);

  std::vector<std::size_t> starts;  // of each run in all values
  for (const Run& run : runs_) {
    starts.push_back(slots_);
    slots_ += run.end - run.first;
    // An index of SQL counts from 1.
    std::string slice = "samples[";
    slice.append(std::to_string(run.first + 1)).append(":");
    slice.append(std::to_string(run.end)).append("]");
    if (run.first == 0) slice = prefer_whole(slice, run.end);
    columns_.append(", ").append(slice);
  }
  for (std::size_t i = 0; i < params.size(); ++i) {
    for (std::size_t s = 0; s < STATISTICS.size(); ++s) {
      if (!(params[i].*STATISTICS[s].flag)) continue;
      const std::size_t slot = get_slot(params[i], s);
      const auto next = std::upper_bound(runs_.begin(), runs_.end(), Run{slot, slot}, by_place);
      const auto run = static_cast<std::size_t>(next - runs_.begin() - 1);
      places_.push_back({starts[run] + slot - runs_[run].first, i, STATISTICS[s].member});
    }
  }
}

bool SlotRuns::unpack(const Result& result, std::size_t row, std::size_t column,
                      std::vector<CSample>& samples) {
  values_.assign(slots_, LACKING);
  std::span<double> rest(values_);
  for (std::size_t i = 0; i < runs_.size(); ++i) {
    const std::size_t count = runs_[i].end - runs_[i].first;
    if (!unpack_array(result.get(row, column + i), rest.first(count))) return false;
    rest = rest.subspan(count);
  }
  samples.assign(params_, CSample{LACKING, LACKING, LACKING, LACKING, LACKING});
  for (const Place& place : places_) samples[place.sample].*place.member = values_[place.value];
  return true;
}

}  // namespace toolkit::trend
