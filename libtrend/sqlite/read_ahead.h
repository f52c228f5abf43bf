// Reading a file from its end to its start as fast as the other way round.
#pragma once

#include <cstdint>

namespace toolkit::trend {

/// A part of a file, in bytes.
struct FilePart {
  std::int64_t start = 0;
  std::int64_t size = 0;
};

/// Watches the reads of a file, and tells what to read ahead.
///
/// The kernel reads ahead where a program reads towards the end of a file. A walk through a log,
/// newest first, reads towards its start, in short runs. This class sees such a walk when the reads
/// come close below what was read before, and take most of it. Reads that jump, as those of one
/// parameter of many do, are left alone.
class ReadAhead {
 public:
  /// How much is read ahead at a time.
  static constexpr std::int64_t WINDOW = std::int64_t{256} * 1024;

  /// A walk has to come through more than this before anything is read ahead. Shorter steps back
  /// are part of walks towards the end of the file, from row to row and to the rest of each row.
  static constexpr std::int64_t LEAST_WALK = std::int64_t{32} * 1024;

  /// To be called before each read. Returns the part to read ahead, of no bytes in most cases. It
  /// ends where the reads before started.
  [[nodiscard]] FilePart before_read(std::int64_t start, std::int64_t size);

 private:
  std::int64_t low_ = 0;    ///< the part of the file that the walk has come through
  std::int64_t high_ = 0;   ///< likewise; equal to `low_` before the first read
  std::int64_t taken_ = 0;  ///< how many bytes of it were read
  std::int64_t ready_ = 0;  ///< from here on, the walk's part was read ahead
};

}  // namespace toolkit::trend
