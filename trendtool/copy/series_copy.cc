#include "trendtool/copy/series_copy.h"

#include <algorithm>

#include "text/csv.h"
#include "trendtool/common/interrupts.h"

using toolkit::trend::CSnapshot;
using toolkit::trend::CTimeRange;

SeriesCopy::SeriesCopy(CopySession& session, const DeviceToCopy& device, const SeriesToCopy& series,
                       std::int64_t last_time, CopyCounts& counts)
    : session_(session),
      device_(device),
      series_(series),
      last_time_(last_time),
      counts_(counts),
      name_("device " + quote(device.source.device.path) + " at the interval of " +
            std::to_string(series.source.minutes) + " minutes"),
      map_(device),
      batch_(map_),
      conflicts_(name_, session.use_utc),
      rows_(session.from, device.source, series.source.minutes),
      recorded_(session.to, device.target, series.source.minutes) {}

SeriesCopy::Result SeriesCopy::fail(Result result, const std::string& what,
                                    const std::string& reason) {
  error_ = "can't " + what + " the rows of " + name_ + ": " + reason;
  return result;
}

SeriesCopy::Result SeriesCopy::run(const std::function<void()>& on_row) {
  const std::uint64_t since = session_.compares_all ? 0 : series_.copied;
  if (session_.from.get_changes(device_.source.device, series_.source.minutes, since, changes_) !=
      0) {
    return fail(Result::FROM_FAILED, "read", session_.from.error());
  }
  Position position;
  for (int tries = 5; tries > 0;) {
    Position end = position;
    if (const Result result = fill(end, on_row); result != Result::DONE) return result;
    const bool is_last = end.range == changes_.ranges.size();
    bool is_overtaken = false;
    const Result result = write(is_last, is_overtaken);
    if (is_overtaken) {
      --tries;
      last_time_ = latest_time();
      continue;
    }
    if (result != Result::DONE) return result;
    counts_.copied += batch_.size();
    counts_.present += present_;
    conflicts_.print();
    position = end;
    if (!is_last) continue;
    conflicts_.finish();
    counts_.conflicts += conflicts_.count();
    return Result::DONE;
  }
  return fail(Result::TO_FAILED, "record", "other programs keep recording the same ones");
}

/// Fills the batch with rows from `position` on that the other database lacks, until it is full,
/// and moves `position` past them.
SeriesCopy::Result SeriesCopy::fill(Position& position, const std::function<void()>& on_row) {
  batch_.clear();
  present_ = 0;
  conflicts_.drop();
  for (; position.range < changes_.ranges.size(); ++position.range) {
    const CTimeRange& range = changes_.ranges[position.range];
    const CTimeRange times = {std::max({range.first, session_.start, position.time}),
                              std::min(range.last, latest_time())};
    if (times.first > times.last) continue;
    std::int64_t next = 0;
    if (const Result result = fill_from(times, next, on_row); result != Result::DONE) {
      return result;
    }
    if (next != 0) {
      position.time = next;
      return Result::DONE;
    }
  }
  return Result::DONE;
}

/// Does this for rows of `times`. Sets `next` to the time of the first row that is left.
SeriesCopy::Result SeriesCopy::fill_from(CTimeRange times, std::int64_t& next,
                                         const std::function<void()>& on_row) {
  const auto fail_to_read = [&] {
    return fail(Result::FROM_FAILED, "read", session_.from.error());
  };
  const auto fail_to_compare = [&] {
    return fail(Result::TO_FAILED, "compare", session_.to.error());
  };
  recorded_.clear();
  if (!rows_.place(times)) return fail_to_read();
  if (rows_.row() == nullptr) return Result::DONE;
  times.first = rows_.row()->timestamp;
  if (times.first <= last_time_ && !recorded_.place(times)) return fail_to_compare();
  while (const CSnapshot* row = rows_.row()) {
    if (is_interrupted()) return Result::INTERRUPTED;
    if (batch_.is_full()) {
      next = row->timestamp;
      return Result::DONE;
    }
    while (recorded_.row() != nullptr && recorded_.row()->timestamp < row->timestamp) {
      if (!recorded_.advance()) return fail_to_compare();
    }
    take(*row);
    on_row();
    if (!rows_.advance()) return fail_to_read();
  }
  return Result::DONE;
}

/// Adds a row to the batch, unless there is one at its time.
void SeriesCopy::take(const CSnapshot& row) {
  const CSnapshot* recorded = recorded_.row();
  if (recorded != nullptr && recorded->timestamp == row.timestamp) {
    const std::string difference = map_.find_difference(row, *recorded);
    if (difference.empty()) {
      ++present_;
    } else {
      conflicts_.add(row.timestamp, difference);
    }
  } else if (row.valid_ratio >= 0 && row.valid_ratio <= 1) {
    batch_.add(row);
  } else {
    conflicts_.add(row.timestamp, "the share of valid data is not from 0 to 1");
  }
}

/// Records the batch. Sets `is_overtaken` if another program has recorded one of its rows
/// meanwhile; then nothing is recorded.
SeriesCopy::Result SeriesCopy::write(bool is_last, bool& is_overtaken) {
  const auto fail_to_record = [&] {
    return fail(Result::TO_FAILED, "record", session_.recorder.error());
  };
  const bool is_noted = is_last && can_be_noted();
  if (batch_.size() == 0 && !is_noted) return Result::DONE;
  if (session_.recorder.begin() != 0) return fail_to_record();
  for (std::size_t i = 0; i < batch_.size(); ++i) {
    if (is_interrupted()) {
      session_.recorder.rollback();
      return Result::INTERRUPTED;
    }
    if (batch_.append(i, series_.target, session_.recorder)) continue;
    const std::int64_t time = batch_.time(i);
    is_overtaken = recorded_.place({time, time}) && recorded_.row() != nullptr;
    return fail_to_record();
  }
  if (is_noted &&
      session_.recorder.set_copied(session_.uuid, series_.target, changes_.number) != 0) {
    return fail_to_record();
  }
  return session_.recorder.commit() == 0 ? Result::DONE : fail_to_record();
}

/// Whether the other database then has everything up to the last change of the series.
bool SeriesCopy::can_be_noted() const {
  return !session_.uuid.empty() && changes_.number != 0 && changes_.number != series_.copied &&
         session_.start <= 1 && series_.source.last_time <= latest_time() &&
         device_.conflicts.empty() && conflicts_.count() == 0;
}
