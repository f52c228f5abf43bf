#include "libtrend/query/query.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>

namespace toolkit::trend {

namespace {

/// No row was passed yet, so the row before the current one is not known.
constexpr std::int64_t NOT_KNOWN = -1;

/// One of the series that a query merges.
struct Source {
  std::unique_ptr<SeriesCursor> cursor;
  std::uint32_t minutes = 0;
  std::int64_t time = NO_ROW;       ///< timestamp of the cursor's current row
  std::int64_t passed = NOT_KNOWN;  ///< timestamp of the row before the current one

  [[nodiscard]] bool advance() {
    passed = time;
    return take(cursor->advance());
  }
  /// Takes the time over from the cursor after it has moved. Returns `has_moved`.
  [[nodiscard]] bool take(bool has_moved) {
    time = cursor->timestamp();
    return has_moved;
  }
};

/// Merges the series of a query. Its sources are in the order of their intervals, the shortest
/// first.
class Merge {
 public:
  Merge(const RowQuery& query, std::vector<CSnapshot>& rows) : query_(query), rows_(rows) {}

  /// Makes the cursors and goes to the first row of each. Returns false on failure.
  [[nodiscard]] bool start(LogReader& reader) {
    std::vector<CSeries> all;
    if (!reader.get_series(query_.device.device, all)) return false;
    // Sorted, as there may be very many series and intervals.
    std::vector<std::uint32_t> wanted;
    for (const CPeriodProperties& period : query_.periods) wanted.push_back(period.interval);
    std::sort(wanted.begin(), wanted.end());
    for (const CSeries& series : all) {
      if (!std::binary_search(wanted.begin(), wanted.end(), series.minutes)) continue;
      sources_.push_back({reader.make_cursor(series, query_.device.params, query_.ascending,
                                             {.skipped = query_.offset, .rows = query_.count}),
                          series.minutes});
      if (!sources_.back().cursor) return false;
    }
    return place();
  }

  /// Appends the wanted rows. Returns false on failure.
  [[nodiscard]] bool run() {
    std::uint64_t to_skip = query_.offset;
    if (sources_.size() == 1) {
      // No other series can hide a row, so the rows need not be looked at one by one.
      if (!sources_.front().take(sources_.front().cursor->pass(to_skip))) return false;
      to_skip = 0;
    }
    std::uint64_t wanted = query_.count;
    for (;;) {
      const std::size_t next = find_next();
      if (next == sources_.size() || sources_[next].time < query_.earliest) return true;
      bool is_hidden = false;
      if (!find_out_if_hidden(next, is_hidden)) return false;
      if (!is_hidden && to_skip > 0) {
        --to_skip;
      } else if (!is_hidden) {
        if (!append_row(sources_[next])) return false;
        if (--wanted == 0) return true;
      }
      if (!advance_past(next)) return false;
    }
  }

 private:
  [[nodiscard]] bool place() {
    if (sources_.empty()) return true;
    const std::int64_t longest = std::int64_t{60} * sources_.back().minutes;
    for (std::size_t i = 0; i < sources_.size(); ++i) {
      // A finer row that hides a coarser one is not newer, and may be before the range. In
      // descending order the cursor must still come to it. In ascending order `find_out_if_hidden`
      // looks for it when needed.
      const bool may_hide = i + 1 < sources_.size() && !query_.ascending;
      const std::int64_t earliest =
          may_hide ? std::max<std::int64_t>(1, query_.earliest - longest + 1) : query_.earliest;
      Source& source = sources_[i];
      if (!source.take(source.cursor->place(earliest, query_.latest))) return false;
    }
    return true;
  }

  /// Returns the index of the source whose current row comes next, or the number of sources if no
  /// row is left. If several rows have the same time, it is the finest one, which hides the others.
  [[nodiscard]] std::size_t find_next() const {
    std::size_t next = sources_.size();
    for (std::size_t i = 0; i < sources_.size(); ++i) {
      const std::int64_t time = sources_[i].time;
      if (time == NO_ROW) continue;
      if (next == sources_.size() ||
          (query_.ascending ? time < sources_[next].time : time > sources_[next].time)) {
        next = i;
      }
    }
    return next;
  }

  /// Finds out whether the current row of the source `index` is hidden: whether a finer series has
  /// a row that ends within its interval. The row must be the finest at its time. Returns false on
  /// failure.
  [[nodiscard]] bool find_out_if_hidden(std::size_t index, bool& is_hidden) {
    is_hidden = false;
    const Source& coarse = sources_[index];
    // The interval may start before the epoch, but no row is there.
    const std::int64_t start = std::max(coarse.time - std::int64_t{60} * coarse.minutes, NO_ROW);
    for (std::size_t i = 0; i < index && !is_hidden; ++i) {
      Source& fine = sources_[i];
      if (query_.ascending && fine.passed == NOT_KNOWN && start + 1 < query_.earliest &&
          !fine.cursor->find_before(query_.earliest, fine.passed)) {
        return false;
      }
      // The finer series' last row before the current time is the one that it passed last or, in
      // descending order, its current row.
      is_hidden = (query_.ascending ? fine.passed : fine.time) > start;
    }
    return true;
  }

  [[nodiscard]] bool append_row(Source& source) {
    CSnapshot& row = rows_.emplace_back();
    row.interval_minutes = source.minutes;
    return source.cursor->decode(row);
  }

  /// Advances the source `index`, and all coarser ones that are at the same time.
  [[nodiscard]] bool advance_past(std::size_t index) {
    const std::int64_t time = sources_[index].time;
    for (std::size_t i = index; i < sources_.size(); ++i) {
      if (sources_[i].time == time && !sources_[i].advance()) return false;
    }
    return true;
  }

  const RowQuery& query_;
  std::vector<CSnapshot>& rows_;
  std::vector<Source> sources_;
};

}  // namespace

bool run_query(LogReader& reader, const RowQuery& query, std::vector<CSnapshot>& rows) {
  Merge merge(query, rows);
  return merge.start(reader) && merge.run();
}

}  // namespace toolkit::trend
