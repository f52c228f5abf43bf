// Reading text line by line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <string>
#include <string_view>

/// Reads the lines of an open file, which must stay open for as long as the reader is used and is
/// not closed by it. Lines come without the "\n" or "\r\n" at their end. A line is valid until the
/// next call.
class LineReader {
 public:
  explicit LineReader(std::FILE* file) : file_(file) {}
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  /// Sets `line` to the next line. Returns false at the end of the file and on failure.
  [[nodiscard]] bool next(std::string_view& line);

  /// Sets `line` to the first line that was not read yet, and keeps it for `next`. Returns false at
  /// the end of the file and on failure.
  [[nodiscard]] bool look_ahead(std::string_view& line);

  /// Returns whether reading failed. To be called after `next` or `look_ahead` returned false.
  [[nodiscard]] bool has_failed() const { return std::feof(file_) == 0; }
  /// Returns the number of the line that `next` returned last. The first line has the number 1.
  [[nodiscard]] std::size_t number() const { return number_; }
  /// Returns the size of all lines that were read, in bytes.
  [[nodiscard]] std::uint64_t bytes() const { return bytes_; }

 private:
  bool read(std::string_view& line);

  std::FILE* file_;
  char* buffer_ = nullptr;
  std::size_t capacity_ = 0;
  std::deque<std::string> ahead_;
  std::string current_;
  std::size_t number_ = 0;
  std::uint64_t bytes_ = 0;
};
