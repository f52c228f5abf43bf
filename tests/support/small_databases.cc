#include "tests/support/small_databases.h"

#include <cmath>
#include <filesystem>
#include <stdexcept>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "libtrend/statistics.h"
#include "tests/support/database_file.h"
#include "tests/support/version_1.h"

using namespace toolkit::trend;

namespace {

constexpr int BLOCK_AND_LOOSE_ROWS = 600;

/// Stops a test whose database can't be made.
void demand(const std::string& error) {
  if (!error.empty()) throw std::runtime_error("can't make a database: " + error);
}

void make_empty(const std::string& path) {
  CLog log;
  const OpenOptions options{.read_only = false, .create = true, .page_size = 512};
  if (log.open(path, options) != 0) throw std::runtime_error(log.error());
}

void make_catalogue(const std::string& path) {
  make_empty(path);
  demand(record_rows(path, "/one", 1, 60, 0));
  demand(record_rows(path, "/two", 60, 60, 0));
}

void make_loose(const std::string& path) {
  make_empty(path);
  demand(record_rows(path, "/one", 1, 60'000, 20));
  demand(record_rows(path, "/one", 60, 3600, 3));
  demand(record_rows(path, "/two", 1, 90'000, 15));
}

void make_sealed(const std::string& path) {
  make_loose(path);
  demand(record_rows(path, "/two", 5, 600, BLOCK_AND_LOOSE_ROWS));
  // Some rows come late, before the block and into it.
  demand(record_rows(path, "/two", 5, 60, 3));
  demand(record_rows(path, "/two", 5, 630, 4));
}

void make_blocks(const std::string& path) {
  write_blocks(path, {make_stored_device()}, {.page_size = 512, .segment_size = 60});
}

void make_purged(const std::string& path) {
  make_sealed(path);
  demand(record_rows(path, "/two", 5, 60'000, 1, 60 * 400));
  demand(record_rows(path, "/one", 1, 120'000, 1, 60 * 1010));
}

void make_rollback_journal(const std::string& path) {
  make_loose(path);
  run_sql(path, "PRAGMA journal_mode = delete");
}

/// A database whose last rows are in its write-ahead log alone, as if its recorder had died.
void make_logged(const std::string& path) {
  const std::string recorded = path + "-recorded";
  make_loose(recorded);
  CRecorder other;
  if (other.open(recorded) != 0) throw std::runtime_error(other.error());
  demand(record_rows(recorded, "/one", 1, 120'000, 5));
  for (const char* end : {"", "-wal"}) std::filesystem::copy_file(recorded + end, path + end);
  other.close();
  std::filesystem::remove(recorded);
}

void make_version_1(const std::string& path) {
  make_loose(path);
  run_sql(path, TURN_INTO_VERSION_1);
}

void make_upgraded(const std::string& path) {
  make_version_1(path);
  demand(record_rows(path, "/one", 1, 120'000, 5));
}

}  // namespace

std::vector<StoredRow> make_stored_rows(int first, int last) {
  std::vector<StoredRow> rows;
  for (int i = first; i <= last; ++i) {
    const double value = i % 7 == 3 ? std::nan("") : i / 3.0;
    rows.push_back({300 * i, i % 5 == 0 ? 0.5 : 1, {i * 1.0, value, i / 10.0}});
  }
  return rows;
}

std::vector<CParamProperties> make_stored_params() {
  std::vector<CParamProperties> params = {{.path = "a"}, {.path = "b", .aux_1 = 2}};
  set_statistics(params[0], 3);
  set_statistics(params[1], 4);
  return params;
}

StoredDevice make_stored_device(std::int64_t unchecked_until) {
  StoredSeries fine{.minutes = 5,
                    .blocks = {},
                    .loose = make_stored_rows(1, 3),
                    .unchecked_until = unchecked_until};
  for (const int block : {4, 12, 20, 28}) fine.blocks.push_back(make_stored_rows(block, block + 7));
  const StoredRow late = fine.blocks[1][4];
  fine.blocks[1].erase(fine.blocks[1].begin() + 4);
  fine.loose.push_back(late);
  for (const StoredRow& row : make_stored_rows(36, 43)) fine.loose.push_back(row);
  StoredSeries coarse{.minutes = 60, .blocks = {}, .loose = {}};
  coarse.blocks.push_back({{3600, 1, {1, 2, 3}}, {7200, 1, {4, 5, 6}}, {72000, 1, {7, 8, 9}}});
  return {"d", make_stored_params(), {fine, coarse}};
}

const std::vector<SmallDatabase>& small_databases() {
  static const std::vector<SmallDatabase> ALL = {
      {"Empty", true, make_empty},
      {"Catalogue", true, make_catalogue},
      {"Loose", true, make_loose},
      {"Sealed", true, make_sealed},
      {"Blocks", true, make_blocks},
      {"Purged", true, make_purged},
      {"RollbackJournal", true, make_rollback_journal},
      {"Logged", true, make_logged},
      {"Version1", false, make_version_1},
      {"Upgraded", false, make_upgraded},
  };
  return ALL;
}

const SmallDatabase& small_database(const std::string& name) {
  for (const SmallDatabase& database : small_databases()) {
    if (database.name == name) return database;
  }
  throw std::logic_error("no such database: " + name);
}

std::string record_rows(const std::string& path, const std::string& device, std::uint32_t minutes,
                        std::int64_t first, int rows, std::int64_t purged) {
  CRecorder recorder;
  CDeviceProperties place{.path = device, .aux_text = "pump house", .aux_1 = -1};
  CParamProperties level{.path = "level"};
  set_statistics(level, 7);
  CParamProperties state{.path = "state"};
  set_statistics(state, 8);
  CSeries series;
  if (recorder.open(path) != 0 || recorder.begin() != 0 || recorder.add_device(place) != 0 ||
      recorder.add_param(place, level) != 0 || recorder.add_param(place, state) != 0 ||
      recorder.add_series(place, minutes, series) != 0) {
    return recorder.error();
  }
  for (int i = 0; i < rows; ++i) {
    const double value = i % 10 / 2.0;
    const double missing = i % 7 == 3 ? std::nan("") : i;
    const std::vector<double> slots = {value, value + 10, value / 3, missing};
    if (recorder.append(series, first + 60 * i, i % 5 == 0 ? 0.5 : 1, slots) != 0) {
      return recorder.error();
    }
  }
  if (recorder.purge(series, purged) != 0 || recorder.commit() != 0) return recorder.error();
  return "";
}
