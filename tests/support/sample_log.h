// A small trend database that has everything, and transactions that change all of its tables.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "libtrend/recorder.h"
#include "tests/support/stored_log.h"

/// The time of a row with this number.
constexpr std::int64_t get_sample_time(std::int64_t number) { return 300 * (196 + number); }

/// Its devices. The first one, "a", has a series of 5 minutes with three blocks of few rows, and
/// with loose rows before, in and after them, the first of them without a checksum; and one of 60
/// minutes. The second has one block, the others no rows. All have the same
/// parameters: two with three slots together, and one without any.
[[nodiscard]] std::vector<StoredDevice> sample_devices();

/// Makes the database at `path`, which does not exist.
void make_sample(const std::string& path);
/// The same in version 1 of the format.
void make_sample_of_version_1(const std::string& path);

/// What a transaction does to the database.
struct Recording {
  const char* name;
  /// Returns false if a call fails.
  bool (*record)(toolkit::trend::CRecorder& recorder);
};

extern const std::vector<Recording> RECORDINGS;
