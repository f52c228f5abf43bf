#include "cli/validate.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "text/input_time.h"
#include "text/time_formats.h"

namespace {

/// Moves the distinct values of a sorted list to its front with `move_forward(to, from)`.
/// Deliberate: the list keeps its length, and duplicates stay at its end. So a name given twice is
/// dumped twice.
template <typename T, typename MoveForward>
void collect_distinct(std::vector<T>& list, const MoveForward& move_forward) {
  std::size_t last = 0;
  for (std::size_t i = 1; i < list.size(); ++i) {
    if (list[i] != list[last] && ++last != i) move_forward(list[last], list[i]);
  }
}

/// Converts `text` to `time`, in seconds since the epoch. `which` is "start" or "end", for the
/// messages. If `text` is empty, `time` stays as it is. Returns 0, or -1 after a message.
int convert_time(const char* which, const std::string& text, const DumpOptions& options,
                 long& time) {
  if (text.empty()) return 0;
  std::tm fields;
  if (!parse_time(text, options.input_time_format, fields)) {
    std::fprintf(stderr, "Error: can't convert %s time '%s' using input format '%s'\n", which,
                 text.c_str(), options.input_time_format.c_str());
    return -1;
  }
  time = to_epoch(fields, options.use_utc);
  // Deliberate: -1 means that the conversion failed. It is also the time one second before the
  // epoch, which is refused for that reason.
  if (time == -1) {
    std::fprintf(stderr, "Error: can't convert %s time\n", which);
    return -1;
  }
  return 0;
}

void set_default(std::string& format, const std::string& default_format) {
  if (format.empty()) format = default_format;
}

}  // namespace

int validate_options(DumpOptions& options) {
  if (options.db_path.empty()) {
    std::fputs("Error: must supply a database name\n", stderr);
    return -1;
  }
  if (options.device.empty()) {
    std::fputs("Error: must supply a device name\n", stderr);
    return -1;
  }
  std::sort(options.params.begin(), options.params.end());
  collect_distinct(options.params, [](auto& to, auto& from) { std::swap(to, from); });
  std::sort(options.intervals.begin(), options.intervals.end());
  collect_distinct(options.intervals, [](auto& to, const auto& from) { to = from; });
  set_default(options.input_time_format, DEFAULT_INPUT_TIME_FORMAT);
  set_default(options.output_date_format, DEFAULT_OUTPUT_DATE_FORMAT);
  set_default(options.output_time_format, DEFAULT_OUTPUT_TIME_FORMAT);
  if (convert_time("start", options.start_text, options, options.start_time) != 0) return -1;
  return convert_time("end", options.end_text, options, options.end_time);
}
