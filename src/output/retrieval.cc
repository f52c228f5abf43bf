#include "output/retrieval.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <limits>

#include "output/row.h"

using toolkit::trend::CDeviceData;
using toolkit::trend::CSnapshot;

namespace {

/// A number of rows as the type that queries take. A larger number becomes the largest one of that
/// type: no log holds so many rows.
unsigned to_count(unsigned long rows) {
  return static_cast<unsigned>(std::min<unsigned long>(rows, std::numeric_limits<unsigned>::max()));
}

/// Makes `range` start after `time`.
void start_after(TimeRange& range, std::time_t time) {
  if (time == std::numeric_limits<long>::max()) {
    range = {time, 0};  // There is no later time. A range that ends before it starts is empty.
  } else {
    range.first = time + 1;
  }
}

void end_before(TimeRange& range, std::time_t time) { range.second = time - 1; }

/// Queries for at most `count` rows. Returns 0 or more, or -1 after a message.
int query(DumpContext& context, const TimeRange& range, unsigned count, unsigned long offset,
          bool oldest_first, CDeviceData& result) {
  const int status = context.log.get_trend_data(result, context.device_params, context.periods,
                                                range, count, to_count(offset), oldest_first, true);
  if (status >= 0) return status;
  std::fputs("Error: couldn't fetch chunk\n", stderr);
  return -1;
}

}  // namespace

int dump_rows(DumpContext& context, const DumpOptions& options) {
  TimeRange range = {context.range_start, context.range_end};
  int status = bound_range(context, options, range);
  if (status != 0) return status;
  const auto limit = static_cast<unsigned long>(options.max_records);
  unsigned long fetched = 0;
  while (status == 0 && (limit == 0 || fetched < limit)) {
    unsigned long count = options.chunk_size;
    if (limit != 0 && (count == 0 || limit - fetched < count)) count = limit - fetched;
    // Deliberate: with "-c 0" and without "-m" the count is 0, which asks for all rows. If there
    // are none, as many rows come as were asked for. So the status is 0, and the same query is made
    // again without end.
    status = fetch_chunk(context, options, range, to_count(count));
    fetched += count;
  }
  return status;
}

int bound_range(DumpContext& context, const DumpOptions& options, TimeRange& range) {
  // Deliberate: with "-c 0" the one query skips and counts by itself. It does so in the order in
  // which rows are printed, so with "-r" other rows are printed than in chunks.
  if (options.chunk_size == 0) return 0;
  if (context.skip != 0) {
    CDeviceData first;
    const int status = query(context, range, 1, context.skip, options.ascending, first);
    if (status < 0) return status;
    // Deliberate: the skip stays, so the first chunk skips all rows and is empty.
    if (first.snapshots.empty()) return 0;
    (options.ascending ? range.first : range.second) = first.snapshots.front().timestamp;
    context.skip = 0;
  }
  if (options.max_records == 0) return 0;
  CDeviceData beyond;
  const auto limit = static_cast<unsigned long>(options.max_records);
  const int status = query(context, range, 1, limit + context.skip, options.ascending, beyond);
  if (status < 0 || beyond.snapshots.empty()) return std::min(status, 0);
  const std::time_t time = beyond.snapshots.front().timestamp;
  if (options.ascending) {
    end_before(range, time);
  } else {
    start_after(range, time);
  }
  return status;
}

int fetch_chunk(DumpContext& context, const DumpOptions& options, TimeRange& range,
                unsigned count) {
  const bool oldest_first = options.ascending != options.reverse;
  CDeviceData chunk;
  if (query(context, range, count, context.skip, oldest_first, chunk) < 0) return -1;
  context.skip = 0;
  for (const CSnapshot& snapshot : chunk.snapshots) print_row(context, options, snapshot);
  std::fflush(context.out);
  if (!chunk.snapshots.empty()) {
    const std::time_t last = chunk.snapshots.back().timestamp;
    if (oldest_first) {
      start_after(range, last);
    } else {
      end_before(range, last);
    }
  }
  return chunk.snapshots.size() == count ? 0 : 1;
}
