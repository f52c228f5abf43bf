#include "tests/support/zone_files.h"

#include <cstddef>
#include <filesystem>
#include <set>

#include "tests/support/process.h"

namespace {

namespace fs = std::filesystem;

/// The big-endian number in the `size` bytes at `place`.
std::int64_t read_number(const std::string& content, std::size_t place, std::size_t size) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < size; ++i) {
    number = number << 8 | static_cast<unsigned char>(content.at(place + i));
  }
  return static_cast<std::int64_t>(number);
}

/// One of the two parts of a zone file: a header with counts, and the entries that it counts. Times
/// have 32 bits in the first part and 64 in the second.
struct Part {
  static constexpr std::size_t HEADER_SIZE = 44;

  Part(const std::string& content, std::size_t header, std::size_t time_size) {
    const auto count = [&](std::size_t place) {
      return static_cast<std::size_t>(read_number(content, header + place, 4));
    };
    time_count = count(32);
    leap_count = count(28);
    times = header + HEADER_SIZE;
    leaps = times + time_count * (time_size + 1) + count(36) * 6 + count(40);
    end = leaps + leap_count * (time_size + 4) + count(24) + count(20);
  }

  std::size_t time_count;
  std::size_t leap_count;
  std::size_t times;  ///< where the times of changes start
  std::size_t leaps;  ///< where the leap seconds start, each a time and a number of 4 bytes
  std::size_t end;
};

bool is_zone(const std::string& content) {
  return content.starts_with("TZif") && content[4] >= '2';
}

std::vector<std::int64_t> read_changes(const std::string& content) {
  const Part part(content, Part(content, 0, 4).end, 8);
  std::vector<std::int64_t> changes;
  for (std::size_t i = 0; i < part.time_count; ++i) {
    changes.push_back(read_number(content, part.times + 8 * i, 8));
  }
  for (std::size_t i = 0; i < part.leap_count; ++i) {
    changes.push_back(read_number(content, part.leaps + 12 * i, 8));
  }
  return changes;
}

}  // namespace

std::vector<SystemZone> system_zones() {
  const fs::path database = "/usr/share/zoneinfo";
  std::vector<SystemZone> zones;
  if (!fs::exists(database)) return zones;
  std::set<std::string> contents;
  for (const auto& entry : fs::recursive_directory_iterator(database)) {
    if (!entry.is_regular_file()) continue;
    const std::string content = read_file(entry.path());
    if (!is_zone(content) || !contents.insert(content).second) continue;
    zones.push_back({entry.path().lexically_relative(database), read_changes(content)});
  }
  return zones;
}
