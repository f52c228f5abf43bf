// Databases with any content and right checksums: rows and blocks are laid out as the input says,
// and then values in the tables are changed.
#include "tests/fuzz/stored_rows.h"

#include <fuzzer/FuzzedDataProvider.h>
#include <sqlite3.h>

#include <bit>
#include <stdexcept>

#include "libtrend/sqlite/block.h"
#include "libtrend/sqlite/series_state.h"
#include "libtrend/statistics.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/whole_database.h"
#include "tests/support/stored_log.h"

using namespace toolkit::trend;

namespace {

constexpr const char* FILE_NAME = "trend.db";

/// A connection, and one statement at a time.
class Target {
 public:
  Target() { sqlite3_open(FILE_NAME, &db_); }
  ~Target() {
    sqlite3_finalize(statement_);
    sqlite3_close(db_);
  }
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;

  sqlite3* db() { return db_; }
  /// Runs `sql`, which the rules of a table may refuse.
  void run(const std::string& sql) { sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr); }
  sqlite3_stmt* prepare(const std::string& sql) {
    sqlite3_finalize(statement_);
    statement_ = nullptr;
    sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement_, nullptr);
    return statement_;
  }
  bool step() { return statement_ != nullptr && sqlite3_step(statement_) == SQLITE_ROW; }
  [[nodiscard]] std::int64_t number(int column) const {
    return sqlite3_column_int64(statement_, column);
  }
  [[nodiscard]] std::vector<unsigned char> bytes(int column) const {
    const auto* start = static_cast<const unsigned char*>(sqlite3_column_blob(statement_, column));
    return {start, start + sqlite3_column_bytes(statement_, column)};
  }
  [[nodiscard]] double real(int column) const { return sqlite3_column_double(statement_, column); }
  [[nodiscard]] bool is_null(int column) const {
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
  }

 private:
  sqlite3* db_ = nullptr;
  sqlite3_stmt* statement_ = nullptr;
};

void set_checksum(std::string& sql, const char* table, const char* id_name, std::int64_t id,
                  std::int64_t checksum) {
  sql.append("UPDATE ").append(table).append(" SET checksum = ").append(std::to_string(checksum));
  sql.append(" WHERE ").append(id_name).append(" = ").append(std::to_string(id)).append(";");
}

/// Makes all checksums right, but for those of columns.
void repair_checksums(Target& target) {
  constexpr std::int64_t TIMES = std::int64_t{1} << 40;
  std::string sql;
  for (target.prepare("SELECT * FROM loose"); target.step();) {
    if (target.is_null(3)) continue;
    set_checksum(sql, "loose", "id", target.number(0),
                 get_row_checksum(target.number(0), target.real(1), target.bytes(2)));
  }
  for (target.prepare("SELECT * FROM block"); target.step();) {
    BlockHead head;
    head.series_id = target.number(0) >> 40;
    head.last_time = target.number(0) & (TIMES - 1);
    head.number = target.number(1);
    head.first_time = target.number(2);
    head.previous = target.number(3);
    head.rows = target.number(4);
    head.bytes = target.number(5);
    head.segment_size = target.number(6);
    head.change = target.number(7);
    head.content = target.bytes(8);
    set_checksum(sql, "block", "id", target.number(0), get_checksum(head));
  }
  for (target.prepare("SELECT * FROM series_state"); target.step();) {
    const SeriesState state = {target.number(0), target.number(1), target.number(2),
                               target.number(3), target.number(4), target.number(5),
                               target.number(6), target.number(7)};
    set_checksum(sql, "series_state", "series_id", state.series_id, get_checksum(state));
  }
  target.run(sql);
  std::uint32_t catalogue = 0;
  if (!get_catalogue_checksum(target.db(), catalogue)) return;
  sql = "UPDATE database SET catalogue = " + std::to_string(catalogue) + ";";
  for (target.prepare("SELECT * FROM database"); target.step();) {
    const std::vector<unsigned char> uuid = target.bytes(1);
    set_checksum(sql, "database", "id", target.number(0),
                 get_database_checksum({uuid.begin(), uuid.end()}, target.number(2), catalogue));
  }
  target.prepare("");
  target.run(sql);
}

std::string row_of(const char* table, FuzzedDataProvider& input) {
  return std::string(" WHERE rowid = (SELECT rowid FROM ") + table + " LIMIT 1 OFFSET " +
         std::to_string(input.ConsumeIntegralInRange(0, 7)) + ")";
}

std::string make_change(FuzzedDataProvider& input) {
  switch (input.ConsumeIntegralInRange(0, 3)) {
    case 0: {
      const auto& [table, column] = input.PickValueInArray(NUMBERS);
      const std::int64_t value = input.ConsumeBool() ? input.ConsumeIntegral<std::int8_t>()
                                                     : input.ConsumeIntegral<std::int64_t>();
      const char* const base = input.ConsumeBool() ? column : "0";
      return std::string("UPDATE ") + table + " SET " + column + " = " + base + " + (" +
             std::to_string(value) + ")" + row_of(table, input);
    }
    case 1: {
      // One byte, or the rest from a place on.
      const auto& [table, column] = input.PickValueInArray(BLOBS);
      const std::string place = std::to_string(input.ConsumeIntegralInRange(1, 40));
      std::array<char, 8> byte;
      std::snprintf(byte.data(), byte.size(), "x'%02x'", input.ConsumeIntegral<std::uint8_t>());
      const std::string rest =
          input.ConsumeBool() ? std::string(" || substr(") + column + ", " + place + " + 1)" : "";
      const bool is_text = std::string_view(column) == "path";
      return std::string("UPDATE ") + table + " SET " + column + " = CAST(substr(" + column +
             ", 1, " + place + " - 1) || " + byte.data() + rest + " AS " +
             (is_text ? "TEXT)" : "BLOB)") + row_of(table, input);
    }
    case 2: {
      const char* const table = input.PickValueInArray(TABLES);
      return std::string("DELETE FROM ") + table + row_of(table, input);
    }
    default:
      return "UPDATE loose SET checksum = NULL" + row_of("loose", input);
  }
}

StoredRow make_row(std::int64_t time, std::size_t slots, FuzzedDataProvider& input) {
  StoredRow row = {time, input.ConsumeIntegralInRange(0, 4) / 4.0, {}};
  for (std::size_t i = 0; i < slots; ++i) {
    row.slots.push_back(input.ConsumeBool()
                            ? input.ConsumeIntegral<std::int8_t>() / 4.0
                            : std::bit_cast<double>(input.ConsumeIntegral<std::uint64_t>()));
  }
  return row;
}

StoredSeries make_series(std::uint32_t minutes, std::size_t slots, FuzzedDataProvider& input) {
  StoredSeries series;
  series.minutes = minutes;
  const std::int64_t step = std::int64_t{60} * minutes;
  std::int64_t time = 0;
  for (int blocks = input.ConsumeIntegralInRange(0, 3); blocks > 0; --blocks) {
    std::vector<StoredRow> rows;
    for (int left = input.ConsumeIntegralInRange(1, 8); left > 0; --left) {
      time += step * input.ConsumeIntegralInRange(1, 3);
      rows.push_back(make_row(time, slots, input));
    }
    series.blocks.push_back(std::move(rows));
  }
  // Times of loose rows differ from those of the blocks, and may be between them.
  for (int left = input.ConsumeIntegralInRange(0, 6); left > 0; --left) {
    const std::int64_t loose_time = 7 + left + step * input.ConsumeIntegralInRange(0, 30);
    series.loose.push_back(make_row(loose_time, slots, input));
  }
  return series;
}

void write_database(FuzzedDataProvider& input) {
  StoredDevice device;
  device.path = "plant";
  CParamProperties param;
  param.path = "level";
  set_statistics(param, input.ConsumeIntegralInRange<std::uint32_t>(1, ALL_STATISTICS));
  device.params = {param};
  const std::size_t slots = get_slot(param, STATISTICS.size());
  for (const std::uint32_t minutes : {1U, 5U}) {
    device.series.push_back(make_series(minutes, slots, input));
  }
  write_blocks(FILE_NAME, {device}, {.page_size = 512, .segment_size = 40});
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  enter_work_folder();
  clear_work_folder();
  try {
    write_database(input);
  } catch (const std::runtime_error&) {
    return -1;  // two loose rows have one time
  }
  {
    Target target;
    for (int left = input.ConsumeIntegralInRange(0, 4); left > 0; --left) {
      target.run(make_change(input));
    }
    repair_checksums(target);
  }
  check_database(FILE_NAME, false);
  return 0;
}
