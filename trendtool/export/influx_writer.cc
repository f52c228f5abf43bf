// The line protocol of InfluxDB: the device is the measurement, the interval is a tag, each value
// is a field, and the time is in nanoseconds.
#include <cmath>
#include <cstdint>
#include <limits>

#include "text/csv.h"
#include "trendtool/export/row_writer.h"
#include "trendtool/export/value_text.h"

using toolkit::trend::CSnapshot;

namespace {

/// Returns `text` with a backslash before each of `special`.
std::string escape(std::string_view text, std::string_view special) {
  std::string escaped;
  for (const char c : text) {
    if (special.find(c) != special.npos) escaped += '\\';
    escaped += c;
  }
  return escaped;
}

/// Whether the protocol can hold a name: it has no way to write these.
bool can_hold(std::string_view name) {
  return !name.empty() && name.find_first_of("\r\n") == name.npos && name.back() != '\\';
}

class InfluxWriter : public RowWriter {
 public:
  InfluxWriter(const Export& what, OutputFile& out)
      : what_(what), out_(out), values_(what.options, '.') {}

  [[nodiscard]] std::string start() override {
    for (const Column& column : what_.columns) {
      if (!can_hold(column.name)) return refuse(column.name);
      names_.push_back(escape(column.name, ",= ") + "=");
    }
    return "";
  }

  [[nodiscard]] std::string start_device(const ExportDevice& device) override {
    const std::string& path = device.selection.device.path;
    // A line that starts so is a comment.
    if (!can_hold(path) || path.front() == '#') return refuse(path);
    device_ = &device;
    measurement_ = escape(path, ", ") + ",interval=";
    return "";
  }

  void write(const CSnapshot& row) override {
    constexpr std::int64_t NANOSECONDS = 1'000'000'000;
    const std::int64_t time = row.timestamp;
    if (time > std::numeric_limits<std::int64_t>::max() / NANOSECONDS) {
      ++late_rows_;
      return;
    }
    bool has_fields = false;
    for (const Cell& cell : device_->cells) {
      const double value = row.samples[cell.sample].*cell.member;
      if (std::isinf(value)) ++infinities_;
      if (!std::isfinite(value)) continue;
      if (has_fields) {
        out_.add(",");
      } else {
        start_line(row);
      }
      has_fields = true;
      out_.add(names_[cell.column]);
      out_.take(values_.write(value, out_.place(MAX_VALUE_TEXT)));
    }
    // A line needs a field, so a row without values has none.
    if (!has_fields) return;
    char* end = out_.place(64);
    *end++ = ' ';
    end = std::to_chars(end, end + 32, time * NANOSECONDS).ptr;
    *end++ = '\n';
    out_.take(end);
  }

  [[nodiscard]] std::string describe_loss() const override {
    std::string wrong;
    if (infinities_ > 0) {
      wrong = std::to_string(infinities_) + " infinite values are left out; influx can't hold them";
    }
    if (late_rows_ > 0) {
      wrong += (wrong.empty() ? "" : "; ") + std::to_string(late_rows_) +
               " rows after the year 2262 are left out; influx can't hold them";
    }
    return wrong;
  }

 private:
  static std::string refuse(const std::string& name) {
    return "influx can't hold the name " + quote(name) + "; choose another format";
  }

  void start_line(const CSnapshot& row) {
    out_.add(measurement_);
    char* end = out_.place(MAX_VALUE_TEXT + 64);
    end = std::to_chars(end, end + 16, row.interval_minutes).ptr;
    *end++ = ' ';
    if (what_.options.with_validity && std::isfinite(row.valid_ratio)) {
      end = write_text("percent_valid=", end);
      end = write_percent(row.valid_ratio, '.', "", end);
      *end++ = ',';
    }
    out_.take(end);
  }

  const Export& what_;
  OutputFile& out_;
  ValueText values_;
  std::vector<std::string> names_;  ///< with "=", by column
  const ExportDevice* device_ = nullptr;
  std::string measurement_;
  std::uint64_t infinities_ = 0;
  std::uint64_t late_rows_ = 0;
};

}  // namespace

std::unique_ptr<RowWriter> make_influx_writer(const Export& what, OutputFile& out) {
  return std::make_unique<InfluxWriter>(what, out);
}
