// Writes inputs from which fuzzers start, each into a folder with the name of its fuzzer:
// databases, and any bytes for those that take decisions from them.
//   fuzz_seeds FOLDER
#include <cmath>
#include <cstdio>
#include <random>
#include <stdexcept>

#include "tests/support/process.h"
#include "tests/support/stored_log.h"

namespace {

StoredRow make_row(std::int64_t time) {
  const auto hour = static_cast<double>(time / 3600);
  return {time, 1, {hour / 8, std::sqrt(hour)}};
}

StoredDevice make_device(int rows_in_blocks, int loose_rows) {
  StoredDevice device;
  device.path = "plant";
  toolkit::trend::CParamProperties param;
  param.path = "level";
  param.has_avg = true;
  param.has_actual = true;
  device.params = {param};
  StoredSeries series;
  series.minutes = 60;
  std::int64_t time = 0;
  for (int left = rows_in_blocks; left > 0; --left) {
    if (left % 10 == 0) series.blocks.emplace_back();
    series.blocks.back().push_back(make_row(time += 3600));
  }
  for (int left = loose_rows; left > 0; --left) series.loose.push_back(make_row(time += 3600));
  device.series = {series};
  return device;
}

void write_databases(const std::string& folder) {
  std::filesystem::create_directories(folder);
  const StoredLayout small_pages = {.page_size = 512, .segment_size = 200};
  write_blocks(folder + "/empty", {}, small_pages);
  write_blocks(folder + "/loose", {make_device(0, 5)}, small_pages);
  write_blocks(folder + "/blocks", {make_device(20, 0)}, small_pages);
  write_blocks(folder + "/both", {make_device(20, 5)}, small_pages);
  write_rows_only(folder + "/version-1", {make_device(0, 5)});
}

void write_random_bytes(const std::string& folder) {
  std::filesystem::create_directories(folder);
  std::mt19937 random(1);
  for (std::size_t size = 64; size <= 1024; size += 64) {
    std::string bytes;
    while (bytes.size() < size) bytes += static_cast<char>(random() & 0xFF);
    write_file(folder + "/random-" + std::to_string(size), bytes);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const std::string folder = std::string(argv[1]) + "/";
  try {
    write_databases(folder + "database");
    for (const char* name : {"archive_rows", "blocks", "dump", "stored_rows", "times"}) {
      write_random_bytes(folder + name);
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "fuzz_seeds: %s\n", error.what());
    return 1;
  }
  return 0;
}
