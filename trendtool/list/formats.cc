#include "trendtool/list/formats.h"

#include <utility>

#include "text/utf8.h"
#include "trendtool/common/escape.h"
#include "trendtool/common/iso_time.h"
#include "trendtool/common/statistic_names.h"

using toolkit::trend::CSeriesSummary;
using toolkit::trend::STATISTICS;

namespace {

/// Adds fields of a line of CSV.
class CsvLine {
 public:
  explicit CsvLine(std::string& text) : text_(text) {}
  ~CsvLine() { text_ += '\n'; }
  CsvLine(const CsvLine&) = delete;
  CsvLine& operator=(const CsvLine&) = delete;

  CsvLine& add(std::string_view field) {
    if (!is_first_) text_ += ',';
    is_first_ = false;
    append_csv_field(field, ',', text_);
    return *this;
  }

 private:
  std::string& text_;
  bool is_first_ = true;
};

/// The time of a row; an empty text if it is 0, where there are no rows.
std::string show_time(std::int64_t time, IsoClock& clock) {
  if (time == 0) return "";
  // Where time_t has 32 bits, a log can have later times.
  if (!std::in_range<std::time_t>(time)) return std::string("@").append(std::to_string(time));
  return clock.text_of(static_cast<std::time_t>(time));
}

void add_device_csv(const DeviceContents& entry, IsoClock& clock, std::string& text) {
  CsvLine(text)
      .add("kind")
      .add("name")
      .add("display_name")
      .add("statistics")
      .add("rows")
      .add("first_time")
      .add("last_time")
      .add("bytes");
  for (std::size_t i = 0; i < entry.params.size(); ++i) {
    const std::string name = entry.display_names.empty() ? "" : entry.display_names[i];
    CsvLine(text)
        .add("parameter")
        .add(entry.params[i].path)
        .add(name)
        .add(join_statistics(entry.params[i]))
        .add("")
        .add("")
        .add("")
        .add("");
  }
  for (const CSeriesSummary& one : entry.series) {
    CsvLine(text)
        .add("interval")
        .add(std::to_string(one.minutes))
        .add("")
        .add("")
        .add(std::to_string(one.rows))
        .add(show_time(one.first_time, clock))
        .add(show_time(one.last_time, clock))
        .add(std::to_string(one.bytes));
  }
}

void add_devices_csv(const std::vector<DeviceContents>& contents, IsoClock& clock,
                     std::string& text) {
  CsvLine(text)
      .add("device")
      .add("description")
      .add("parameters")
      .add("intervals")
      .add("rows")
      .add("first_time")
      .add("last_time")
      .add("bytes");
  for (const DeviceContents& entry : contents) {
    CsvLine(text)
        .add(entry.device.path)
        .add(entry.device.aux_text)
        .add(std::to_string(entry.params.size()))
        .add(std::to_string(entry.series.size()))
        .add(std::to_string(entry.rows()))
        .add(show_time(entry.first_time(), clock))
        .add(show_time(entry.last_time(), clock))
        .add(std::to_string(entry.bytes()));
  }
}

/// Adds the parts of a JSON object or array, with commas between them.
class JsonList {
 public:
  JsonList(char open, char close, std::string& text) : close_(close), text_(text) { text_ += open; }
  ~JsonList() { text_ += close_; }
  JsonList(const JsonList&) = delete;
  JsonList& operator=(const JsonList&) = delete;

  /// Starts the next entry. Returns the text that it is to be added to.
  std::string& next() {
    if (!is_first_) text_ += ", ";
    is_first_ = false;
    return text_;
  }
  std::string& next(const char* name) {
    next() += '"';
    return (text_ += name) += "\": ";
  }
  void add(const char* name, const std::string& value) { append_json_string(value, next(name)); }
  void add(const char* name, std::uint64_t value) { next(name) += std::to_string(value); }
  void add_time(const char* name, std::int64_t time, IsoClock& clock) {
    if (time == 0) {
      next(name) += "null";
    } else {
      add(name, show_time(time, clock));
    }
  }

 private:
  char close_;
  std::string& text_;
  bool is_first_ = true;
};

void add_params_json(const DeviceContents& entry, std::string& text) {
  JsonList params('[', ']', text);
  for (std::size_t i = 0; i < entry.params.size(); ++i) {
    JsonList param('{', '}', params.next());
    param.add("path", entry.params[i].path);
    if (!entry.display_names.empty()) param.add("display_name", entry.display_names[i]);
    JsonList statistics('[', ']', param.next("statistics"));
    for (std::size_t k = 0; k < STATISTICS.size(); ++k) {
      if (entry.params[i].*STATISTICS[k].flag) {
        append_json_string(STATISTIC_NAMES[k], statistics.next());
      }
    }
  }
}

void add_device_json(const DeviceContents& entry, IsoClock& clock, std::string& text) {
  JsonList device('{', '}', text);
  device.add("path", entry.device.path);
  device.add("description", entry.device.aux_text);
  add_params_json(entry, device.next("parameters"));
  JsonList series('[', ']', device.next("intervals"));
  for (const CSeriesSummary& one : entry.series) {
    JsonList interval('{', '}', series.next());
    interval.add("minutes", one.minutes);
    interval.add("rows", one.rows);
    interval.add_time("first_time", one.first_time, clock);
    interval.add_time("last_time", one.last_time, clock);
    interval.add("bytes", one.bytes);
  }
}

}  // namespace

std::string list_names(const std::vector<DeviceContents>& contents, bool is_one_device) {
  std::string text;
  if (!is_one_device) {
    for (const DeviceContents& entry : contents) text += show_controls(entry.device.path) + "\n";
    return text;
  }
  const DeviceContents& entry = contents.front();
  for (std::size_t i = 0; i < entry.params.size(); ++i) {
    text +=
        show_controls(entry.display_names.empty() ? entry.params[i].path : entry.display_names[i]) +
        "\n";
  }
  return text;
}

std::string list_as_csv(const std::vector<DeviceContents>& contents, bool is_one_device,
                        bool use_utc) {
  IsoClock clock(use_utc);
  std::string text;
  if (is_one_device) {
    add_device_csv(contents.front(), clock, text);
  } else {
    add_devices_csv(contents, clock, text);
  }
  return text;
}

std::string list_as_json(const std::vector<DeviceContents>& contents, bool use_utc) {
  IsoClock clock(use_utc);
  std::string text = "{\"devices\": ";
  {
    JsonList devices('[', ']', text);
    for (const DeviceContents& entry : contents) {
      devices.next() += "\n  ";
      add_device_json(entry, clock, text);
    }
  }
  return text + "}\n";
}
