#include "tests/support/sample_log.h"

#include "libtrend/statistics.h"

using namespace toolkit::trend;

namespace {

std::vector<StoredRow> make_rows(std::int64_t first, std::int64_t last) {
  std::vector<StoredRow> rows;
  for (std::int64_t i = first; i <= last; ++i) {
    const auto value = static_cast<double>(i);
    rows.push_back({get_sample_time(i), 1, {value, value / 3, value / 10}});
  }
  return rows;
}

}  // namespace

std::vector<StoredDevice> sample_devices() {
  std::vector<StoredDevice> devices;
  for (const char* path : {"a", "b", "c", "d"}) {
    StoredDevice device{path, {{.path = "flow"}, {.path = "level"}, {.path = "state"}}, {}};
    set_statistics(device.params[0], 3);
    set_statistics(device.params[1], 4);
    device.params[1].aux_1 = 2;
    devices.push_back(device);
  }
  StoredSeries fine{
      .minutes = 5, .blocks = {}, .loose = make_rows(1, 1), .unchecked_until = get_sample_time(1)};
  fine.blocks = {make_rows(3, 6), make_rows(11, 14), make_rows(15, 18)};
  fine.blocks[1].erase(fine.blocks[1].begin() + 1);
  for (const StoredRow& row : make_rows(12, 12)) fine.loose.push_back(row);
  for (const StoredRow& row : make_rows(20, 21)) fine.loose.push_back(row);
  StoredSeries coarse{.minutes = 60, .blocks = {}, .loose = make_rows(12, 12)};
  // Only a row before the range of a query shows that this one is hidden.
  for (const StoredRow& row : make_rows(8, 8)) coarse.loose.push_back(row);
  devices[0].series = {fine, coarse};
  devices[1].series = {{.minutes = 5, .blocks = {make_rows(1, 3)}, .loose = {}}};
  return devices;
}

void make_sample_of_version_1(const std::string& path) { write_rows_only(path, sample_devices()); }

void make_sample(const std::string& path) {
  write_blocks(path, sample_devices(), {.page_size = 512, .segment_size = 64});
}

namespace {

bool add_rows(CRecorder& recorder) {
  CDeviceProperties old{.path = "a", .aux_text = ""};
  CDeviceProperties device{.path = "new", .aux_text = "pump house"};
  CParamProperties speed{.path = "speed", .has_max = true};
  CParamProperties flow{.path = "flow", .has_max = true};
  CSeries fine;
  CSeries series;
  if (recorder.add_device(old) != 0 || recorder.add_param(old, flow) != 0 ||
      recorder.add_param(old, speed) != 0 || recorder.add_series(old, 5, fine) != 0 ||
      recorder.add_device(device) != 0 || recorder.add_param(device, speed) != 0 ||
      recorder.add_series(device, 10, series) != 0) {
    return false;
  }
  std::uint64_t change = 0;
  // Before and between the blocks, into two of them, and after them.
  for (const std::int64_t row : {2, 4, 8, 12, 17, 40}) {
    const double value = static_cast<double>(row);
    const std::int64_t time = get_sample_time(row) + 7;
    if (recorder.append(fine, time, 0.5, std::vector{value}) != 0 ||
        recorder.append(series, time, 1, std::vector{value}) != 0) {
      return false;
    }
  }
  return recorder.get_copied("source", fine, change) == 0 &&
         recorder.set_copied("source", fine, change + 5) == 0;
}

bool purge(CRecorder& recorder) {
  CDeviceProperties device{.path = "a", .aux_text = ""};
  CSeries fine;
  CSeries coarse;
  return recorder.add_device(device) == 0 && recorder.add_series(device, 5, fine) == 0 &&
         recorder.add_series(device, 60, coarse) == 0 &&
         recorder.append(fine, get_sample_time(30), 1, {}) == 0 &&
         recorder.purge(fine, get_sample_time(13)) == 0 && recorder.purge(coarse, 1'000'000) == 0;
}

bool remove_rows(CRecorder& recorder) {
  CDeviceProperties device{.path = "a", .aux_text = ""};
  CSeries fine;
  if (recorder.add_device(device) != 0 || recorder.add_series(device, 5, fine) != 0 ||
      recorder.append(fine, get_sample_time(30), 1, {}) != 0) {
    return false;
  }
  for (const std::int64_t row : {1, 5, 20}) {
    if (recorder.remove_row(fine, get_sample_time(row)) != 0) return false;
  }
  return true;
}

bool remove_device(CRecorder& recorder) {
  CDeviceProperties first{.path = "a", .aux_text = ""};
  CDeviceProperties second{.path = "b", .aux_text = ""};
  CSeries series;
  return recorder.add_device(first) == 0 && recorder.add_series(first, 5, series) == 0 &&
         recorder.set_copied("source", series, 3) == 0 && recorder.remove_series(series) == 0 &&
         recorder.add_device(second) == 0 && recorder.remove_device(second) == 0;
}

/// Adds so many rows that blocks are made of them at once.
bool load_rows(CRecorder& recorder) {
  CDeviceProperties device{.path = "a", .aux_text = ""};
  CSeries series;
  if (recorder.add_device(device) != 0 || recorder.add_series(device, 5, series) != 0) return false;
  for (std::int64_t row = 30; row < 630; ++row) {
    if (recorder.append(series, get_sample_time(row), 1, std::vector{1.5}) != 0) return false;
  }
  return true;
}

bool note_copy(CRecorder& recorder) {
  CDeviceProperties device{.path = "a", .aux_text = ""};
  CSeries series;
  std::uint64_t change = 0;
  return recorder.add_device(device) == 0 && recorder.add_series(device, 5, series) == 0 &&
         recorder.set_copied("source", series, 3) == 0 &&
         recorder.get_copied("source", series, change) == 0 && change == 3;
}

}  // namespace

const std::vector<Recording> RECORDINGS = {
    {"Adding", add_rows},          {"Purging", purge},
    {"RemovingRows", remove_rows}, {"RemovingADevice", remove_device},
    {"NotingACopy", note_copy},    {"Loading", load_rows},
};
