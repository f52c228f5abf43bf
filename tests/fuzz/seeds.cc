// Writes inputs from which fuzzers start, each into a folder with the name of its fuzzer:
// databases, and any bytes for those that take decisions from them.
//   fuzz_seeds FOLDER
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <stdexcept>

#include "tests/fuzz/stored_rows.h"
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

/// An input for a fuzzer, written as the decisions that its FuzzedDataProvider takes from it: from
/// the last byte to the first, each as many bytes as its range needs.
class Decisions {
 public:
  Decisions& add(std::int64_t decision, std::int64_t least, std::int64_t most) {
    const std::uint64_t range =
        static_cast<std::uint64_t>(most) - static_cast<std::uint64_t>(least);
    int size = 0;
    while (size < 8 && range >> (8 * size) > 0) ++size;
    const std::uint64_t number =
        static_cast<std::uint64_t>(decision) - static_cast<std::uint64_t>(least);
    while (--size >= 0) bytes_ += static_cast<char>(number >> (8 * size) & 0xFF);
    return *this;
  }
  Decisions& add(bool decision) { return add(decision ? 1 : 0, 0, 1); }
  [[nodiscard]] std::string bytes() const { return {bytes_.rbegin(), bytes_.rend()}; }

 private:
  std::string bytes_;
};

/// Adds a row with one value, as `make_row` of the fuzzer of stored rows asks for it.
void add_row(Decisions& decisions) { decisions.add(4, 0, 4).add(true).add(6, -128, 127); }

/// Two series with blocks and loose rows, and what follows is one change.
Decisions describe_stored_rows() {
  Decisions decisions;
  decisions.add(8, 1, 31);  // the statistics of the parameter
  for (int series = 0; series < 2; ++series) {
    decisions.add(2, 0, 3);  // blocks
    for (int block = 0; block < 2; ++block) {
      decisions.add(3, 1, 8);  // rows
      for (int row = 0; row < 3; ++row) add_row(decisions.add(1, 1, 3));
    }
    decisions.add(2, 0, 6);  // loose rows
    for (const int minute : {0, 20}) add_row(decisions.add(minute, 0, 30));
  }
  return decisions.add(1, 0, 4);  // changes
}

/// Writes an input of the fuzzer of stored rows for each change that is one step from a database
/// that is whole, in the order of its decisions.
void write_stored_rows(const std::string& folder) {
  constexpr int NUMBER = 0;
  constexpr int BLOB = 1;
  constexpr int DELETION = 2;
  constexpr int CHECKSUM = 3;
  const auto write = [&](const std::string& name, const Decisions& decisions) {
    write_file(folder + "/" + name, decisions.bytes());
  };
  const auto describe = [](int kind, std::size_t index, std::size_t count) {
    return describe_stored_rows()
        .add(kind, 0, 3)
        .add(static_cast<std::int64_t>(index), 0, static_cast<std::int64_t>(count) - 1);
  };
  for (std::size_t i = 0; i < NUMBERS.size(); ++i) {
    const std::string name = std::string(NUMBERS[i][0]) + "-" + NUMBERS[i][1];
    for (const int step : {-1, 1}) {
      write(name + std::to_string(step), describe(NUMBER, i, NUMBERS.size())
                                             .add(true)
                                             .add(step, -128, 127)
                                             .add(true)  // to what the column has
                                             .add(0, 0, 7));
    }
  }
  for (std::size_t i = 0; i < BLOBS.size(); ++i) {
    const std::string name = std::string(BLOBS[i][0]) + "-" + BLOBS[i][1];
    for (const bool has_rest : {false, true}) {
      write(
          name + (has_rest ? "-byte" : "-end"),
          describe(BLOB, i, BLOBS.size()).add(1, 1, 40).add(7, 0, 255).add(has_rest).add(0, 0, 7));
    }
  }
  for (std::size_t i = 0; i < TABLES.size(); ++i) {
    write(std::string(TABLES[i]), describe(DELETION, i, TABLES.size()).add(0, 0, 7));
  }
  write("checksum", describe_stored_rows().add(CHECKSUM, 0, 3).add(0, 0, 7));
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
    write_stored_rows(folder + "stored_rows");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "fuzz_seeds: %s\n", error.what());
    return 1;
  }
  return 0;
}
