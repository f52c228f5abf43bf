// Reading text line by line.
#pragma once

#include <cstddef>
#include <cstdio>
#include <deque>
#include <string>
#include <string_view>

/// The lines of an open file, which is borrowed. They come without their ends, "\n" or "\r\n", and
/// stay valid until the next call.
class LineReader {
 public:
  explicit LineReader(std::FILE* file) : file_(file) {}
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  /// Gives the next line; false at the end of the file and on failure.
  [[nodiscard]] bool next(std::string_view& line);

  /// Gives the line behind those looked at before, and keeps it for `next`; false likewise.
  [[nodiscard]] bool look_ahead(std::string_view& line);

  /// Whether it was a failure that ended the lines.
  [[nodiscard]] bool has_failed() const { return std::feof(file_) == 0; }
  /// The number of the line that `next` gave last, counted from 1.
  [[nodiscard]] std::size_t number() const { return number_; }

 private:
  bool read(std::string_view& line);

  std::FILE* file_;
  char* buffer_ = nullptr;
  std::size_t capacity_ = 0;
  std::deque<std::string> ahead_;
  std::string current_;
  std::size_t number_ = 0;
};
