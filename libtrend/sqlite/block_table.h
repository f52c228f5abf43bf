// The tables that hold blocks.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "libtrend/sqlite/block.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// Reads and writes blocks on one connection, which must outlive it. What fails leaves the reason
/// in `error`.
class BlockTable {
 public:
  enum class Result { FOUND, MISSING, FAILED };

  BlockTable() = default;
  explicit BlockTable(sqlite3* db);
  /// Whether every statement could be prepared, which takes the tables.
  explicit operator bool() const;

  /// Finds the block of a series whose last time is `last_time`.
  [[nodiscard]] Result find(std::int64_t series_id, std::int64_t last_time, BlockHead& head,
                            std::string& error);
  /// Finds the first block of a series whose last time is `time` or later.
  [[nodiscard]] Result find_from(std::int64_t series_id, std::int64_t time, BlockHead& head,
                                 std::string& error);

  /// Reads the bytes from `start` to `end`, at most `head.bytes`, of the columns of a block.
  /// Returns false on failure.
  [[nodiscard]] bool read_columns(const BlockHead& head, std::size_t start, std::size_t end,
                                  std::vector<unsigned char>& bytes, std::string& error);

  /// Inserts a block with its columns. Returns false on failure.
  [[nodiscard]] bool insert(const BlockHead& head, const std::vector<unsigned char>& columns,
                            std::string& error);
  /// Replaces the head of a block that is there. Returns false on failure.
  [[nodiscard]] bool replace_head(const BlockHead& head, std::string& error);
  /// Deletes a block with its columns. Returns false on failure.
  [[nodiscard]] bool remove(const BlockHead& head, std::string& error);

 private:
  bool write_head(const BlockHead& head, std::string& error);

  Statement find_;
  Statement find_from_;
  Statement read_segments_;
  Statement write_head_;
  Statement write_segment_;
  Statement remove_head_;
  Statement remove_segments_;
};

/// The SQL of a statement that yields the heads of the blocks with ids from parameter 1 to
/// parameter 2, in order.
extern const char* const READ_BLOCK_HEADS;

/// Reads the next head that `row` yields. Leaves the reason in `error` where it is damaged.
[[nodiscard]] BlockTable::Result read_block_head(Statement& row, BlockHead& head,
                                                 std::string& error);

/// Returns the largest segment that a page of so many bytes holds without overflow pages.
[[nodiscard]] std::int64_t get_segment_size(std::int64_t page_size);

}  // namespace toolkit::trend
