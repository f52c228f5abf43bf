#include "tests/support/stored_log.h"

#include <sqlite3.h>

#include <stdexcept>

#include "libtrend/sqlite/block_table.h"
#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/samples.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/series_state.h"
#include "libtrend/statistics.h"

using namespace toolkit::trend;

namespace {

void demand(bool is_done, const std::string& error) {
  if (!is_done) throw std::runtime_error("can't write a database: " + error);
}

/// A database that is being written.
class Target {
 public:
  Target(const std::filesystem::path& path, int page_size, const std::string& schema) {
    std::string error;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    demand(connect(path.string(), flags, nullptr, db_, error), error);
    execute("PRAGMA page_size = " + std::to_string(page_size) + "; BEGIN;" + schema);
  }

  sqlite3* db() { return db_.get(); }

  void execute(const std::string& sql) {
    std::string error;
    demand(toolkit::trend::execute(db_.get(), sql, error), error);
  }

  std::int64_t insert_device(const StoredDevice& device) {
    execute("INSERT INTO device (path) VALUES ('" + device.path + "')");
    const std::int64_t id = sqlite3_last_insert_rowid(db());
    for (const CParamProperties& param : device.params) {
      execute("INSERT INTO parameter (device_id, path, statistics, first_slot) VALUES (" +
              std::to_string(id) + ", '" + param.path + "', " +
              std::to_string(get_statistics(param)) + ", " + std::to_string(param.aux_1) + ")");
    }
    return id;
  }

  std::int64_t insert_series(std::int64_t device, std::uint32_t minutes) {
    execute("INSERT INTO series (device_id, minutes) VALUES (" + std::to_string(device) + ", " +
            std::to_string(minutes) + ")");
    return sqlite3_last_insert_rowid(db());
  }

 private:
  Database db_;
};

void insert_row(Statement& insert, std::int64_t series, const StoredRow& row, bool has_checksum) {
  const std::vector<unsigned char> samples = pack_samples(row.slots);
  const std::int64_t id = get_row_id(series, row.time);
  insert.bind(1, id);
  insert.bind(2, row.valid_ratio);
  insert.bind(3, samples.data(), samples.size());
  if (has_checksum) {
    insert.bind(4, std::int64_t{get_row_checksum(id, row.valid_ratio, samples)});
  }
  demand(insert.run(), insert.error());
}

BlockRows to_block(const std::vector<StoredRow>& rows) {
  BlockRows block;
  block.slots = rows.front().slots.size();
  for (const StoredRow& row : rows) {
    block.times.push_back(row.time);
    block.valid_ratios.push_back(row.valid_ratio);
  }
  for (std::size_t slot = 0; slot < block.slots; ++slot) {
    for (const StoredRow& row : rows) block.values.push_back(row.slots.at(slot));
  }
  return block;
}

/// Writes series with their blocks.
class BlockWriter {
 public:
  BlockWriter(Target& target, std::int64_t segment_size)
      : blocks_(target.db()),
        states_(target.db()),
        checked_(target.db(), "INSERT INTO loose VALUES (?1, ?2, ?3, ?4)"),
        unchecked_(target.db(), "INSERT INTO loose VALUES (?1, ?2, ?3, NULL)"),
        segment_size_(segment_size) {}

  void write(std::int64_t id, const StoredSeries& series) {
    SeriesState state;
    state.series_id = id;
    state.unchecked_until = series.unchecked_until;
    state.changes = 1;
    for (const StoredRow& row : series.loose) {
      const bool is_checked = row.time > series.unchecked_until;
      insert_row(is_checked ? checked_ : unchecked_, id, row, is_checked);
      if (is_checked) ++state.loose_rows;
    }
    for (const std::vector<StoredRow>& rows : series.blocks) write_block(rows, state);
    std::string error;
    demand(states_.add(state, error), error);
  }

  [[nodiscard]] std::int64_t next_block() const { return next_block_; }

 private:
  void write_block(const std::vector<StoredRow>& rows, SeriesState& state) {
    BlockHead head;
    head.series_id = state.series_id;
    head.number = next_block_++;
    head.previous = state.last_block;
    head.segment_size = segment_size_;
    head.change = state.changes;
    std::vector<unsigned char> columns;
    encode_block(to_block(rows), head, columns);
    std::string error;
    demand(blocks_.insert(head, columns, error), error);
    if (state.first_block == 0) state.first_block = head.last_time;
    state.last_block = head.last_time;
    ++state.blocks;
    state.sealed_rows += head.rows;
  }

  BlockTable blocks_;
  SeriesStates states_;
  Statement checked_;
  Statement unchecked_;
  std::int64_t segment_size_;
  std::int64_t next_block_ = 1;
};

}  // namespace

void write_blocks(const std::filesystem::path& path, const std::vector<StoredDevice>& devices,
                  const StoredLayout& layout) {
  Target target(path, layout.page_size,
                std::string(CREATE_CATALOGUE) + CREATE_LOOSE + CREATE_BLOCKS);
  {
    BlockWriter writer(target, layout.segment_size);
    for (const StoredDevice& device : devices) {
      const std::int64_t id = target.insert_device(device);
      for (const StoredSeries& series : device.series) {
        writer.write(target.insert_series(id, series.minutes), series);
      }
    }
    std::uint32_t catalogue = 0;
    demand(get_catalogue_checksum(target.db(), catalogue), "its catalogue");
    const std::string uuid = "00000000-0000-4000-8000-000000000000";
    target.execute("INSERT INTO database VALUES (1, '" + uuid + "', " +
                   std::to_string(writer.next_block()) + ", " + std::to_string(catalogue) + ", " +
                   std::to_string(get_database_checksum(uuid, writer.next_block(), catalogue)) +
                   ")");
  }
  target.execute("COMMIT");
}

void write_rows_only(const std::filesystem::path& path, const std::vector<StoredDevice>& devices) {
  Target target(path, 4096, std::string(CREATE_CATALOGUE) + CREATE_ROWS_ONLY);
  {
    Statement insert(target.db(), "INSERT INTO snapshot VALUES (?1, ?2, ?3)");
    for (const StoredDevice& device : devices) {
      const std::int64_t id = target.insert_device(device);
      for (const StoredSeries& series : device.series) {
        const std::int64_t series_id = target.insert_series(id, series.minutes);
        for (const auto& block : series.blocks) {
          for (const StoredRow& row : block) insert_row(insert, series_id, row, false);
        }
        for (const StoredRow& row : series.loose) insert_row(insert, series_id, row, false);
      }
    }
  }
  target.execute("COMMIT");
}

void copy_database(const std::filesystem::path& from, const std::filesystem::path& to) {
  std::string error;
  Database source;
  Database target;
  demand(connect(from.string(), SQLITE_OPEN_READONLY, nullptr, source, error), error);
  demand(connect(to.string(), SQLITE_OPEN_READWRITE, nullptr, target, error), error);
  sqlite3_backup* backup = sqlite3_backup_init(target.get(), "main", source.get(), "main");
  demand(backup != nullptr, sqlite3_errmsg(target.get()));
  sqlite3_backup_step(backup, -1);
  demand(sqlite3_backup_finish(backup) == SQLITE_OK, sqlite3_errmsg(target.get()));
}
