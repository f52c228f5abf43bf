#include "libtrend/sqlite/check_catalogue.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>

#include "libtrend/sqlite/block.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/statement.h"
#include "libtrend/statistics.h"

namespace toolkit::trend {

namespace {

void note(const std::string& text, DamageList& found) {
  found.insert({.device = "", .param = "", .text = text});
}

/// Calls `take` on each row of `sql`.
template <typename Take>
void for_each_row(sqlite3* db, const char* sql, DamageList& found, const Take& take) {
  Statement row(db, sql);
  if (!row) return note("a table is missing or damaged", found);
  Statement::Step step = row.step();
  for (; step == Statement::Step::ROW; step = row.step()) take(row);
  if (step == Statement::Step::ERROR) note(row.error(), found);
}

/// Notes each line of a finding of SQLite.
void note_lines(const std::string& text, DamageList& found) {
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    const std::string line = text.substr(start, end - start);
    // The other lines say in which database.
    if (!line.starts_with("***")) note("SQLite: " + line, found);
    start = end + 1;
  }
}

/// Notes the devices that have more than `most` rows of `table`, which are called `name`.
void check_count(sqlite3* db, const char* table, const char* name, std::size_t most,
                 DamageList& found) {
  const std::string sql = std::string("SELECT d.path FROM ") + table +
                          " r NOT INDEXED LEFT JOIN device d ON d.id = r.device_id "
                          "GROUP BY r.device_id HAVING count(*) > " +
                          std::to_string(most);
  for_each_row(db, sql.c_str(), found, [&](const Statement& row) {
    CDamage damage;
    if (!row.read(0, damage.device)) damage.device.clear();
    damage.text = std::string("it has more ") + name + " than a device can have";
    found.insert(damage);
  });
}

void check_slots(sqlite3* db, DamageList& found) {
  std::int64_t device = -1;
  std::int64_t end = 0;  // of the slots of the parameters before
  const char* sql =
      "SELECT p.path, p.statistics, p.first_slot, p.device_id, d.path "
      "FROM parameter p NOT INDEXED LEFT JOIN device d ON d.id = p.device_id "
      "ORDER BY p.device_id, p.first_slot";
  for_each_row(db, sql, found, [&](const Statement& row) {
    CDamage damage;
    std::int64_t statistics = 0;
    std::int64_t first_slot = 0;
    std::int64_t id = 0;
    if (!row.read(0, damage.param) || !row.read(1, statistics) || !row.read(2, first_slot) ||
        !row.read(3, id) || statistics < 0 || statistics > ALL_STATISTICS || first_slot < 0) {
      return note("a parameter is damaged", found);
    }
    if (!row.read(4, damage.device)) damage.device.clear();
    if (id != device) end = 0;
    device = id;
    CParamProperties param;
    set_statistics(param, static_cast<std::uint32_t>(statistics));
    const auto slots = static_cast<std::int64_t>(get_slot(param, STATISTICS.size()));
    if (slots == 0) return;
    if (first_slot < end) {
      damage.text = "its slots are also those of another parameter";
      found.insert(damage);
    }
    constexpr auto MOST = static_cast<std::int64_t>(MAX_DEVICE_SLOTS);
    if (first_slot > MOST - slots) {
      damage.text = "its slots are beyond those that a row can have";
      found.insert(damage);
      return;
    }
    end = std::max(end, first_slot + slots);
  });
}

}  // namespace

void check_structure(sqlite3* db, DamageList& found) {
  for_each_row(db, "PRAGMA integrity_check", found, [&](const Statement& row) {
    std::string text;
    if (!row.read(0, text)) text = "the result of the check can't be read";
    if (text != "ok") note_lines(text, found);
  });
  for_each_row(db, "PRAGMA foreign_key_check", found, [&](const Statement& row) {
    std::string table;
    std::string parent;
    if (!row.read(0, table) || !row.read(2, parent)) table = "a table";
    std::int64_t id = 0;
    if (!row.read(1, id)) id = 0;
    note("row " + std::to_string(id) + " of " + table + " belongs to no " + parent, found);
  });
}

void check_catalogue(sqlite3* db, std::int64_t version, DamageList& found,
                     std::vector<CSeries>& series) {
  const auto read_device = [&](const Statement& row) {
    std::string text;
    if (!row.read(0, text) || !row.read(1, text)) note("a device is damaged", found);
  };
  for_each_row(db, "SELECT path, description FROM device", found, read_device);
  check_count(db, "parameter", "parameters", MAX_DEVICE_SLOTS, found);
  check_count(db, "series", "intervals", max_device_series(version), found);
  check_slots(db, found);
  std::int64_t before = std::numeric_limits<std::int64_t>::min();
  const char* sql = "SELECT id, minutes FROM series NOT INDEXED ORDER BY id";
  for_each_row(db, sql, found, [&](const Statement& row) {
    std::int64_t id = 0;
    std::int64_t minutes = 0;
    if (!row.read(0, id) || !row.read(1, minutes) || minutes <= 0 || !is_series_id(id) ||
        id <= before) {
      return note("a series is damaged", found);
    }
    before = id;
    const bool fits = minutes <= std::numeric_limits<std::uint32_t>::max();
    series.push_back({.id = id, .minutes = fits ? static_cast<std::uint32_t>(minutes) : 0});
  });
}

}  // namespace toolkit::trend
