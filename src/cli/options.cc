#include "cli/options.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "cli/validate.h"

namespace {

/// Stores the value that follows an option. Returns false, after a message, if the value is bad.
using StoreValue = bool (*)(DumpOptions& options, const char* value);
using SetFlag = void (*)(DumpOptions& options);

/// One option. `store_value` is null for an option without a value, `set_flag` for one with a
/// value.
struct Option {
  const char* name;
  StoreValue store_value;
  SetFlag set_flag;
};

template <std::string DumpOptions::*FIELD>
bool store_text(DumpOptions& options, const char* value) {
  options.*FIELD = value;
  return true;
}

bool append_param(DumpOptions& options, const char* value) {
  options.params.emplace_back(value);
  return true;
}

// Deliberate, for all numbers: only the digits at the start count, what follows them is ignored,
// and text that is not a number counts as 0.

/// The number at the start of `value`, or the nearest one that a long can hold.
long to_long(const char* value) {
  constexpr int DECIMAL = 10;
  return std::strtol(value, nullptr, DECIMAL);
}

/// Reads a number from `value`. Returns false, after `message` with the number, where it is below
/// `minimum`.
bool read_long(const char* value, long minimum, const char* message, long& number) {
  number = to_long(value);
  if (number >= minimum) return true;
  std::fprintf(stderr, message, number);
  return false;
}

/// The same for the sizes, which are ints and at least 1. Deliberate: where a long is wider than an
/// int, only its low 32 bits count.
bool read_int(const char* value, const char* message, int& number) {
  number = static_cast<int>(to_long(value));
  if (number >= 1) return true;
  std::fprintf(stderr, message, number);
  return false;
}

// Deliberate: 0 is allowed for "-i", where it stands for the smallest interval, and for "-c", where
// it stands for no chunks, but not for "-m" and "-o".

bool append_interval(DumpOptions& options, const char* value) {
  long minutes = 0;
  if (!read_long(value, 0, "Error: invalid trend interval: %ld\n", minutes)) return false;
  options.intervals.push_back(static_cast<unsigned long>(minutes));
  return true;
}

bool store_max_records(DumpOptions& options, const char* value) {
  return read_long(value, 1, "Error: invalid maximum # of records: %ld\n", options.max_records);
}

bool store_offset(DumpOptions& options, const char* value) {
  return read_long(value, 1, "Error: invalid log file offset: %ld\n", options.offset);
}

bool store_chunk_size(DumpOptions& options, const char* value) {
  constexpr unsigned long LARGEST = std::numeric_limits<std::uint32_t>::max();
  long size = 0;
  if (!read_long(value, 0, "Error: invalid chunk size: %ld\n", size)) return false;
  const unsigned long rows = std::min(static_cast<unsigned long>(size), LARGEST);
  options.chunk_size = static_cast<std::uint32_t>(rows);
  return true;
}

bool store_page_size(DumpOptions& options, const char* value) {
  return read_int(value, "Error: invalid page size: %d\n", options.page_size);
}

/// Deliberate: the bits that do not fit into 32 are lost.
std::int32_t to_bytes(int kilobytes) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(kilobytes) << 10);
}

bool store_cache_size(DumpOptions& options, const char* value) {
  int kilobytes = 0;
  if (!read_int(value, "Error: invalid cache size: %d\n", kilobytes)) return false;
  options.cache_size = to_bytes(kilobytes);
  return true;
}

bool store_heap_limit(DumpOptions& options, const char* value) {
  int kilobytes = 0;
  if (!read_int(value, "Error: invalid heap limit: %d\n", kilobytes)) return false;
  options.heap_limit = to_bytes(kilobytes);
  return true;
}

template <bool DumpOptions::*FIELD, bool VALUE>
void set_flag(DumpOptions& options) {
  options.*FIELD = VALUE;
}

constexpr const char* VERSION_OPTION = "-v";

constexpr std::array OPTIONS = {
    Option{"-x", store_text<&DumpOptions::db_path>, nullptr},
    Option{"-d", store_text<&DumpOptions::device>, nullptr},
    Option{"-p", append_param, nullptr},
    Option{"-i", append_interval, nullptr},
    Option{"-s", store_text<&DumpOptions::start_text>, nullptr},
    Option{"-e", store_text<&DumpOptions::end_text>, nullptr},
    Option{"-m", store_max_records, nullptr},
    Option{"-o", store_offset, nullptr},
    Option{"-c", store_chunk_size, nullptr},
    Option{"-f", store_text<&DumpOptions::output_path>, nullptr},
    Option{"-a", nullptr, set_flag<&DumpOptions::ascending, true>},
    Option{"-r", nullptr, set_flag<&DumpOptions::reverse, true>},
    Option{"-nh", nullptr, set_flag<&DumpOptions::print_header, false>},
    Option{"-n", nullptr, set_flag<&DumpOptions::display_names, true>},
    Option{"-t", store_text<&DumpOptions::input_time_format>, nullptr},
    Option{"-w", store_text<&DumpOptions::output_date_format>, nullptr},
    Option{"-y", store_text<&DumpOptions::output_time_format>, nullptr},
    Option{"-u", nullptr, set_flag<&DumpOptions::use_utc, true>},
    Option{"-b", nullptr, set_flag<&DumpOptions::interval_begin, true>},
    Option{"-pv", nullptr, set_flag<&DumpOptions::percent_valid, true>},
    Option{"-sp", store_page_size, nullptr},
    Option{"-sc", store_cache_size, nullptr},
    Option{"-sl", store_heap_limit, nullptr},
    Option{"-J", nullptr, set_flag<&DumpOptions::use_wal, false>},
};

}  // namespace

int parse_args(DumpOptions& options, int argc, const char* const* argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], VERSION_OPTION) == 0) return 1;
    const auto option = std::find_if(OPTIONS.begin(), OPTIONS.end(), [&](const Option& candidate) {
      return std::strcmp(argv[i], candidate.name) == 0;
    });
    if (option == OPTIONS.end()) return -1;
    if (option->store_value == nullptr) {
      option->set_flag(options);
      continue;
    }
    ++i;
    if (i == argc || *argv[i] == '\0') return -1;
    if (!option->store_value(options, argv[i])) return -1;
  }
  return validate_options(options);
}
