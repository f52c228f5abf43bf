#include "libtrend/query/query.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>

#include "libtrend/query/tournament.h"

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
    if (sources_.size() == 1) return run_alone(sources_.front());
    std::uint64_t to_skip = query_.offset;
    std::uint64_t wanted = query_.count;
    for (;;) {
      if (times_.largest() == Tournament::LEAST) return true;
      const std::size_t next = times_.first_largest();
      if (sources_[next].time < query_.earliest) return true;
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
  /// Appends the wanted rows of the only source. No other can hide them, so those to skip need not
  /// be looked at one by one.
  [[nodiscard]] bool run_alone(Source& source) {
    SeriesCursor& cursor = *source.cursor;
    if (!cursor.pass(query_.offset)) return false;
    std::uint64_t wanted = query_.count;
    while (cursor.timestamp() != NO_ROW) {
      if (!append_row(source)) return false;
      if (--wanted == 0) return true;
      if (!cursor.advance()) return false;
    }
    return true;
  }

  [[nodiscard]] bool place() {
    times_.start(sources_.size());
    passed_.start(sources_.size());
    if (sources_.empty()) return true;
    const std::int64_t longest = std::int64_t{60} * sources_.back().minutes;
    for (std::size_t i = 0; i < sources_.size(); ++i) {
      // A finer row that hides a coarser one is not newer, and may be before the range. In
      // descending order the cursor must still come to it. In ascending order `find_out_if_hidden`
      // looks for it when needed.
      const bool may_hide = i + 1 < sources_.size() && !query_.ascending;
      const std::int64_t earliest =
          may_hide ? std::max<std::int64_t>(1, query_.earliest - longest + 1) : query_.earliest;
      if (!sources_[i].cursor->place(earliest, query_.latest)) return false;
      take_time(i);
    }
    return true;
  }

  /// Takes the time over from the cursor of a source after it has moved.
  void take_time(std::size_t index) {
    Source& source = sources_[index];
    source.time = source.cursor->timestamp();
    const std::int64_t place = query_.ascending ? -source.time : source.time;
    times_.set(index, source.time == NO_ROW ? Tournament::LEAST : place);
  }

  /// Notes the time of the row before the current one, where it may hide rows.
  void set_passed(std::size_t index, std::int64_t time) {
    if (!query_.ascending || index + 1 == sources_.size()) return;
    sources_[index].passed = time;
    passed_.set(index, time);
  }

  /// Finds out whether the current row of the source `index` is hidden: whether a finer series has
  /// a row that ends within its interval. The row must be the finest at its time. Returns false on
  /// failure.
  [[nodiscard]] bool find_out_if_hidden(std::size_t index, bool& is_hidden) {
    is_hidden = false;
    if (index == 0) return true;
    const Source& coarse = sources_[index];
    // The interval may start before the epoch, but no row is there.
    const std::int64_t start = std::max(coarse.time - std::int64_t{60} * coarse.minutes, NO_ROW);
    // The finer series' last row before the current time is the one that it passed last or, in
    // descending order, its current row.
    is_hidden = (query_.ascending ? passed_ : times_).largest_before(index) > start;
    if (!query_.ascending || start + 1 >= query_.earliest) return true;
    for (; looked_before_ < index && !is_hidden; ++looked_before_) {
      Source& fine = sources_[looked_before_];
      if (fine.passed != NOT_KNOWN) continue;
      std::int64_t before = NO_ROW;
      if (!fine.cursor->find_before(query_.earliest, before)) return false;
      set_passed(looked_before_, before);
      is_hidden = before > start;
    }
    return true;
  }

  [[nodiscard]] bool append_row(Source& source) {
    CSnapshot& row = rows_.emplace_back();
    row.interval_minutes = source.minutes;
    return source.cursor->decode(row);
  }

  /// Advances the source `next`, and all others that are at its time.
  [[nodiscard]] bool advance_past(std::size_t next) {
    const std::int64_t place = times_.largest();
    for (;;) {
      Source& source = sources_[next];
      set_passed(next, source.time);
      if (!source.cursor->advance()) return false;
      take_time(next);
      if (times_.largest() != place) return true;
      next = times_.first_largest();
    }
  }

  const RowQuery& query_;
  std::vector<CSnapshot>& rows_;
  std::vector<Source> sources_;
  /// By source: the time of the current row, negative in ascending order, so that the source whose
  /// row comes next has the largest. If several rows have the same time, the first of them is the
  /// finest one, which hides the others.
  Tournament times_;
  Tournament passed_;              ///< by source: the time of the row before, in ascending order
  std::size_t looked_before_ = 0;  ///< of so many sources the row before the range is known
};

}  // namespace

bool run_query(LogReader& reader, const RowQuery& query, std::vector<CSnapshot>& rows) {
  Merge merge(query, rows);
  return merge.start(reader) && merge.run();
}

}  // namespace toolkit::trend
