// JSON, one object a line.
#include <cmath>

#include "trendtool/common/escape.h"
#include "trendtool/export/row_writer.h"
#include "trendtool/export/value_text.h"

using toolkit::trend::CSnapshot;

namespace {

class JsonlWriter : public RowWriter {
 public:
  JsonlWriter(const Export& what, OutputFile& out)
      : what_(what), out_(out), values_(what.options, '.'), times_(what.options) {
    for (const Column& column : what.columns) {
      std::string& name = names_.emplace_back(",");
      append_json_string(column.name, name);
      name += ':';
    }
  }

  [[nodiscard]] std::string start_device(const ExportDevice& device) override {
    device_ = &device;
    device_member_.clear();
    if (!what_.names_devices()) return "";
    device_member_ = ",\"device\":";
    append_json_string(device.selection.device.path, device_member_);
    return "";
  }

  void write(const CSnapshot& row) override {
    write_start(row);
    for (const Cell& cell : device_->cells) {
      out_.add(names_[cell.column]);
      const double value = row.samples[cell.sample].*cell.member;
      char* to = out_.place(MAX_VALUE_TEXT);
      out_.take(std::isnan(value) ? write_text("null", to) : values_.write(value, to));
    }
    out_.add("}\n");
  }

 private:
  void write_start(const CSnapshot& row) {
    char* end = out_.place(MAX_TIME_TEXT + 64);
    end = write_text("{\"time\":", end);
    if (!times_.writes_numbers()) *end++ = '"';
    end = times_.write(row.timestamp, end);
    if (!times_.writes_numbers()) *end++ = '"';
    end = write_text(",\"interval\":", end);
    out_.take(std::to_chars(end, end + 16, row.interval_minutes).ptr);
    out_.add(device_member_);
    if (!what_.options.with_validity) return;
    end = write_text(",\"percent_valid\":", out_.place(MAX_VALUE_TEXT + 32));
    out_.take(write_percent(row.valid_ratio, '.', "null", end));
  }

  const Export& what_;
  OutputFile& out_;
  ValueText values_;
  TimeText times_;
  std::vector<std::string> names_;  ///< comma, name and colon, by column
  const ExportDevice* device_ = nullptr;
  std::string device_member_;
};

}  // namespace

std::unique_ptr<RowWriter> make_jsonl_writer(const Export& what, OutputFile& out) {
  return std::make_unique<JsonlWriter>(what, out);
}
