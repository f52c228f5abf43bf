// The state of one run.
#pragma once

#include <cstdio>
#include <vector>

#include "libtrend/log.h"
#include "text/calendar.h"
#include "trendlog/dump_options.h"

/// What the stages of one run set and read. It owns the output stream and the trend log. When it is
/// destroyed, it closes the stream first and the log last.
struct DumpContext {
  DumpContext() = default;
  ~DumpContext();
  DumpContext(const DumpContext&) = delete;
  DumpContext& operator=(const DumpContext&) = delete;

  toolkit::trend::CLog log;
  toolkit::trend::CDeviceParams device_params;             ///< the selection
  std::vector<toolkit::trend::CPeriodProperties> periods;  ///< the selected intervals
  long range_start = 0;    ///< seconds since the epoch, inclusive; -1 no bound
  long range_end = 0;      ///< the same
  unsigned long skip = 0;  ///< number of rows that are still to be skipped
  std::FILE* out = nullptr;
  Calendar calendar;  ///< for the times of rows
};

/// Sets `context.out` to the file that "-f" names, created or emptied, or to standard output. A
/// file of the database that "-x" names counts as one that can't be opened. Returns 0, or 1 with
/// `context.out` null after a message on standard error.
[[nodiscard]] int open_output(DumpContext& context, const DumpOptions& options);

/// Closes the output stream, even if it is standard output, and sets `context.out` to null. Does
/// nothing if it is null already.
void close_output(DumpContext& context);
