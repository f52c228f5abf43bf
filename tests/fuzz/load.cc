// CSV of any content: what `trendtool load` takes, `export` writes so that another load takes it,
// and the next export is the same.
#include <fuzzer/FuzzedDataProvider.h>

#include "libtrend/log.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/process.h"
#include "tests/support/recorded_rows.h"
#include "tests/support/time_zone.h"
#include "trendtool/export/export.h"
#include "trendtool/load/loader.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CLog;
using toolkit::trend::CSeriesSummary;

namespace {

/// The ways to write an export.
struct Form {
  bool use_epoch = false;
  bool use_utc = false;
  bool is_long = false;
  char decimal = '.';
};

std::string export_series(const std::string& db, const std::string& device, std::uint32_t minutes,
                          const Form& form) {
  ExportOptions options;
  options.db_path = db;
  options.devices = {device};
  options.intervals = {minutes};
  options.exact = true;
  options.ascending = true;
  options.use_epoch = form.use_epoch;
  options.use_utc = form.use_utc;
  options.is_long = form.is_long;
  options.decimal = form.decimal;
  const Captured result = capture([&] { return run_export(options); });
  demand(result.status == 0, "can't export what was loaded: " + result.err);
  return result.out;
}

/// Loads `text` into the new database `db`.
Captured load(const std::string& text, const std::string& db, const std::string& device,
              std::uint32_t minutes, bool use_utc) {
  LoadOptions options;
  options.program = "trendtool";
  options.reads_exports = true;
  options.db_path = db;
  options.device = device;
  options.minutes = minutes;
  options.use_utc = use_utc;
  return capture([&] { return run_load(options); }, text);
}

void check_series(const std::string& device, std::uint32_t minutes, const Form& form) {
  const std::string text = export_series("first.db", device, minutes, form);
  std::filesystem::remove("second.db");
  const Captured loaded = load(text, "second.db", device, 0, form.use_utc);
  demand(loaded.status == 0, "can't load an export: " + loaded.err + "\n" + text);
  demand_equal(export_series("second.db", device, minutes, form), text, "another export");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return -1;
  const std::uint8_t flags = data[0];
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  enter_work_folder();
  clear_work_folder();
  const TimeZone zone((flags & 1) != 0 ? TimeZone::CENTRAL_EUROPE : TimeZone::UTC);
  const bool names_device = (flags & 2) == 0;
  const bool names_interval = (flags & 4) == 0;
  const Captured loaded = load(text, "first.db", names_device ? "plant" : "",
                               names_interval ? 60 : 0, (flags & 8) != 0);
  demand(loaded.status == (loaded.err.empty() ? 0 : 1), "a failure without a message");
  demand(loaded.out.empty(), "a load prints something");
  if (!std::filesystem::exists("first.db")) return -1;
  const RecordedDatabase recorded = read_recorded_rows("first.db");
  if (loaded.status != 0) {
    demand(recorded.series.empty(), "a load has failed, and yet recorded something");
    return 0;
  }
  const Form form = {(flags & 16) != 0, (flags & 32) != 0, (flags & 64) != 0,
                     (flags & 128) != 0 ? ',' : '.'};
  CLog log;
  std::vector<CDeviceProperties> devices;
  demand(log.open("first.db", {}) == 0 && log.get_devices(devices) == 0, log.error());
  for (const CDeviceProperties& device : devices) {
    std::vector<CSeriesSummary> series;
    demand(log.get_series(device, series) == 0, log.error());
    for (const CSeriesSummary& one : series) {
      // A file without rows does not say which intervals there are.
      if (one.rows > 0) check_series(device.path, one.minutes, form);
    }
  }
  return 0;
}
