// Reading records of CSV, whose fields may be in quotes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "text/line_reader.h"

/// Reads the records of a file. A record is a line, or several if fields in quotes have line feeds.
class RecordReader {
 public:
  /// `lines` must outlive the reader.
  RecordReader(LineReader& lines, char separator) : lines_(lines), separator_(separator) {}

  /// Sets `fields` to those of the next record, without quotes, valid until the next call. If there
  /// are more than `MOST_FIELDS`, one field more has all the rest. Returns false at the end of the
  /// file, on failure to read it, and at a wrong record: `wrong` then says what is wrong with it.
  /// A record is too long if it has more than `LONGEST_LINE` bytes.
  [[nodiscard]] bool next(std::vector<std::string_view>& fields);

  [[nodiscard]] const std::string& wrong() const { return wrong_; }
  /// Returns the number of the first line of the current record.
  [[nodiscard]] std::size_t number() const { return number_; }

 private:
  bool read_quoted(std::string_view line, std::vector<std::string_view>& fields);
  bool fail(const char* wrong);

  LineReader& lines_;
  char separator_;
  std::size_t number_ = 0;
  std::string text_;               ///< the fields of a record with quotes, one after another
  std::vector<std::size_t> ends_;  ///< where each ends in it
  std::string wrong_;
};
