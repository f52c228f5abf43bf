#include "tests/support/recorded_rows.h"

#include <sqlite3.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <stdexcept>

#include "libtrend/sqlite/block.h"
#include "libtrend/sqlite/series_state.h"

using namespace toolkit::trend;

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::int64_t TIMES = std::int64_t{1} << 40;

void expect(bool is_right, const std::string& rule) {
  if (!is_right) throw std::runtime_error(rule);
}

/// The columns of one row of a result.
class Columns {
 public:
  explicit Columns(sqlite3_stmt* statement) : statement_(statement) {}
  [[nodiscard]] bool is_null(int i) const {
    return sqlite3_column_type(statement_, i) == SQLITE_NULL;
  }
  [[nodiscard]] std::int64_t number(int i) const {
    expect(sqlite3_column_type(statement_, i) == SQLITE_INTEGER, "a column is not an integer");
    return sqlite3_column_int64(statement_, i);
  }
  [[nodiscard]] double real(int i) const { return sqlite3_column_double(statement_, i); }
  [[nodiscard]] Bytes bytes(int i) const {
    const auto* start = static_cast<const unsigned char*>(sqlite3_column_blob(statement_, i));
    return {start, start + sqlite3_column_bytes(statement_, i)};
  }
  [[nodiscard]] std::string text(int i) const {
    const Bytes text = bytes(i);
    return {text.begin(), text.end()};
  }

 private:
  sqlite3_stmt* statement_;
};

class Database {
 public:
  explicit Database(const std::string& path) {
    expect(sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK,
           "it can't be opened");
  }
  ~Database() { sqlite3_close(db_); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void for_each(const std::string& sql, const std::function<void(const Columns&)>& take) const {
    sqlite3_stmt* statement = nullptr;
    expect(sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK, sql);
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> owner(statement, sqlite3_finalize);
    int step = sqlite3_step(statement);
    for (; step == SQLITE_ROW; step = sqlite3_step(statement)) take(Columns(statement));
    expect(step == SQLITE_DONE, sqlite3_errmsg(db_));
  }

  [[nodiscard]] std::int64_t number(const std::string& sql) const {
    std::int64_t number = 0;
    for_each(sql, [&](const Columns& row) { number = row.number(0); });
    return number;
  }

  [[nodiscard]] sqlite3* get() const { return db_; }

 private:
  sqlite3* db_ = nullptr;
};

void add_row(std::int64_t time, double valid_ratio, std::vector<double> values,
             RecordedSeries& rows) {
  while (!values.empty() && std::isnan(values.back())) values.pop_back();
  expect(time > 0 && time < TIMES, "a row has a time that is none");
  expect(rows.emplace(time, RecordedRow{valid_ratio, std::move(values)}).second,
         "two rows of a series have one time: " + std::to_string(time));
}

/// Reads the loose rows of a series. Returns how many there are with a time after
/// `unchecked_until`.
std::int64_t read_loose(const Database& db, std::int64_t id, std::int64_t unchecked_until,
                        RecordedDatabase& stored) {
  std::int64_t counted = 0;
  bool has_old = false;
  const std::string range =
      std::to_string(id * TIMES) + " AND " + std::to_string(id * TIMES + TIMES - 1);
  db.for_each("SELECT * FROM loose WHERE id BETWEEN " + range, [&](const Columns& row) {
    const std::int64_t time = row.number(0) - id * TIMES;
    const Bytes samples = row.bytes(2);
    expect(samples.size() % 8 == 0, "a loose row has half a value");
    if (row.is_null(3)) {
      expect(time <= unchecked_until, "a loose row lacks its checksum");
      ++stored.rows_without_checksum;
    } else {
      expect(row.number(3) == get_row_checksum(row.number(0), row.real(1), samples),
             "a loose row has a wrong checksum");
    }
    std::vector<double> values;
    for (std::size_t i = 0; i < samples.size(); i += 8) {
      std::uint64_t bits = 0;
      for (std::size_t byte = 0; byte < 8; ++byte) bits = bits << 8 | samples[i + byte];
      values.push_back(std::bit_cast<double>(bits));
    }
    add_row(time, row.real(1), values, stored.series[id]);
    if (time > unchecked_until) ++counted;
    has_old = has_old || time <= unchecked_until;
    ++stored.loose_rows;
  });
  expect(unchecked_until == 0 || has_old, "no row is left that may be without a checksum");
  return counted;
}

Bytes read_columns(const Database& db, const BlockHead& head, std::set<std::int64_t>& segments) {
  Bytes bytes;
  const std::int64_t first = head.number << 16;
  const std::string range = std::to_string(first) + " AND " + std::to_string(first + 0xFFFF);
  std::int64_t place = 0;
  db.for_each("SELECT * FROM segment WHERE id BETWEEN " + range + " ORDER BY id",
              [&](const Columns& row) {
                expect(row.number(0) == first + place++, "a segment is missing");
                expect(segments.insert(row.number(0)).second, "two blocks have one number");
                const Bytes data = row.bytes(1);
                bytes.insert(bytes.end(), data.begin(), data.end());
                expect(std::ssize(data) == head.segment_size || std::ssize(bytes) == head.bytes,
                       "a segment has a wrong length");
              });
  expect(std::ssize(bytes) == head.bytes, "a block has a wrong number of bytes");
  return bytes;
}

void read_block(const BlockHead& head, const Bytes& bytes, RecordedSeries& rows) {
  BlockLayout layout;
  expect(decode_layout(head, layout), "the content of a head is damaged");
  std::vector<std::vector<double>> values(layout.times.size());
  std::vector<double> column(layout.times.size());
  for (std::size_t slot = 0; slot < layout.slots(); ++slot) {
    const auto encoded = std::span(bytes).subspan(layout.offsets[slot],
                                                  layout.offsets[slot + 1] - layout.offsets[slot]);
    expect(decode_block_column(head, slot, encoded, column), "a column is damaged");
    for (std::size_t row = 0; row < column.size(); ++row) values[row].push_back(column[row]);
  }
  expect(layout.times.size() <= get_block_rows(layout.slots()), "a block is too large");
  for (std::size_t row = 0; row < layout.times.size(); ++row) {
    add_row(layout.times[row], layout.valid_ratios[row], values[row], rows);
  }
}

/// Reads the blocks of a series, and checks that they are a chain as `state` says.
void read_blocks(const Database& db, const SeriesState& state, std::int64_t next_block,
                 std::set<std::int64_t>& segments, RecordedDatabase& stored) {
  const std::int64_t id = state.series_id;
  std::int64_t first = 0;
  std::int64_t previous = 0;
  std::int64_t blocks = 0;
  std::int64_t rows = 0;
  const std::string range =
      std::to_string(id * TIMES) + " AND " + std::to_string(id * TIMES + TIMES - 1);
  db.for_each("SELECT * FROM block WHERE id BETWEEN " + range + " ORDER BY id",
              [&](const Columns& row) {
                BlockHead head;
                head.series_id = id;
                head.last_time = row.number(0) - id * TIMES;
                head.number = row.number(1);
                head.first_time = row.number(2);
                head.previous = row.number(3);
                head.rows = row.number(4);
                head.bytes = row.number(5);
                head.segment_size = row.number(6);
                head.change = row.number(7);
                head.content = row.bytes(8);
                expect(row.number(9) == get_checksum(head), "a head has a wrong checksum");
                expect(head.segment_size >= 1 && head.segment_size < std::int64_t{1} << 32,
                       "a block has a wrong segment size");
                expect(head.previous == previous, "the chain of blocks is broken");
                expect(head.first_time > previous, "blocks overlap");
                expect(head.number < next_block, "a block has a number of the future");
                expect(head.change <= state.changes, "a block has a change of the future");
                read_block(head, read_columns(db, head, segments), stored.series[id]);
                previous = head.last_time;
                if (first == 0) first = previous;
                ++blocks;
                rows += head.rows;
              });
  expect(state.first_block == first && state.last_block == previous, "a state has wrong ends");
  expect(state.blocks == blocks && state.sealed_rows == rows, "a state has wrong counts");
  stored.blocks += blocks;
  stored.sealed_rows += rows;
}

}  // namespace

bool RecordedRow::operator==(const RecordedRow& other) const {
  const auto is_same = [](double a, double b) {
    return (std::isnan(a) && std::isnan(b)) ||
           std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
  };
  return is_same(valid_ratio, other.valid_ratio) &&
         std::equal(values.begin(), values.end(), other.values.begin(), other.values.end(),
                    is_same);
}

RecordedDatabase read_recorded_rows(const std::string& path) {
  const Database db(path);
  RecordedDatabase stored;
  expect(db.number("PRAGMA application_id") == 0x54524E44, "it has another application's id");
  expect(db.number("PRAGMA user_version") == 2, "it has another version");
  db.for_each("PRAGMA integrity_check",
              [](const Columns& row) { expect(row.text(0) == "ok", row.text(0)); });
  db.for_each("PRAGMA foreign_key_check",
              [](const Columns& row) { expect(false, row.text(0) + ": a reference is broken"); });

  std::uint32_t catalogue = 0;
  expect(get_catalogue_checksum(db.get(), catalogue), "the catalogue can't be read");
  int database_rows = 0;
  db.for_each("SELECT * FROM database", [&](const Columns& row) {
    ++database_rows;
    stored.next_block = row.number(2);
    expect(row.text(1).size() == 36, "the database has no id");
    expect(row.number(3) == catalogue, "the catalogue has a wrong checksum");
    expect(row.number(4) == get_database_checksum(row.text(1), row.number(2), row.number(3)),
           "the row about the database has a wrong checksum");
  });
  expect(database_rows == 1, "there is not one row about the database");

  expect(db.number("SELECT count(*) FROM parameter WHERE first_slot > 65535 - ("
                   "(statistics & 1) + (statistics >> 1 & 1) + (statistics >> 2 & 1) + "
                   "(statistics >> 3 & 1) + (statistics >> 4 & 1))") == 0,
         "a parameter has slots that no row has");
  expect(db.number("SELECT coalesce(max(n), 0) FROM (SELECT count(*) AS n FROM series GROUP BY "
                   "device_id)") <= 100,
         "a device has too many series");
  db.for_each("SELECT id FROM series", [&](const Columns& row) { stored.series[row.number(0)]; });
  std::set<std::int64_t> segments;
  std::size_t states = 0;
  db.for_each("SELECT * FROM series_state", [&](const Columns& row) {
    ++states;
    const SeriesState state = {row.number(0), row.number(1), row.number(2), row.number(3),
                               row.number(4), row.number(5), row.number(6), row.number(7)};
    expect(row.number(8) == get_checksum(state), "a state has a wrong checksum");
    expect(stored.series.contains(state.series_id), "a state has no series");
    expect(read_loose(db, state.series_id, state.unchecked_until, stored) == state.loose_rows,
           "a state has a wrong number of loose rows");
    read_blocks(db, state, stored.next_block, segments, stored);
  });
  expect(states == stored.series.size(), "a series has no state");
  expect(db.number("SELECT count(*) FROM loose") == stored.loose_rows, "a loose row has no series");
  expect(db.number("SELECT count(*) FROM block") == stored.blocks, "a block has no series");
  expect(db.number("SELECT count(*) FROM segment") == std::ssize(segments),
         "a segment has no block");
  return stored;
}
