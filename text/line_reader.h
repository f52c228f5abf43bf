// Reading text line by line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

/// The longest line that is read, in bytes. A row of a device with as many values as it can have is
/// shorter.
inline constexpr std::size_t LONGEST_LINE = std::size_t{16} << 20;

/// Reads the lines of an open file, which must stay open for as long as the reader is used and is
/// not closed by it. Lines come without the "\n" or "\r\n" at their end. A line is valid until the
/// next call.
class LineReader {
 public:
  /// `file` is a file descriptor.
  explicit LineReader(int file) : file_(file), buffer_(BUFFER_SIZE, '\0') {}
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  /// Sets `line` to the next line. Returns false at the end of the file and on failure.
  [[nodiscard]] bool next(std::string_view& line);

  /// Sets `line` to the first line that was not read yet, and keeps it for `next`. Returns false at
  /// the end of the file, on failure, and if as many lines are kept as `LineReader` keeps at most:
  /// 10,000, or as many as have `LONGEST_LINE` bytes together.
  [[nodiscard]] bool look_ahead(std::string_view& line);

  /// Returns whether reading failed. To be called after `next` returned false.
  [[nodiscard]] bool has_failed() const { return error_ != 0; }
  /// Returns the reason as errno has it: EMSGSIZE if the next line is longer than `LONGEST_LINE`.
  [[nodiscard]] int error() const { return error_; }
  /// Returns the number of the line that `next` returned last. The first line has the number 1.
  [[nodiscard]] std::size_t number() const { return number_; }
  /// Returns the size of all lines that were read, in bytes.
  [[nodiscard]] std::uint64_t bytes() const { return bytes_; }

 private:
  static constexpr std::size_t BUFFER_SIZE = 65536;

  bool read(std::string_view& line);
  bool fill();

  int file_;
  int error_ = 0;
  bool is_at_end_ = false;
  std::string buffer_;
  std::size_t start_ = 0;  ///< of what was read into the buffer and not returned yet
  std::size_t end_ = 0;    ///< of what was read
  std::deque<std::string> ahead_;
  std::size_t bytes_ahead_ = 0;
  std::string current_;
  std::size_t number_ = 0;
  std::uint64_t bytes_ = 0;
};
