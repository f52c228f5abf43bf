#include "trendtool/load/record_reader.h"

#include "text/csv.h"

bool RecordReader::fail(const char* wrong) {
  wrong_ = wrong;
  return false;
}

bool RecordReader::next(std::vector<std::string_view>& fields) {
  fields.clear();
  std::string_view line;
  const bool has_line = lines_.next(line);
  number_ = lines_.number();
  if (!has_line) return false;
  if (line.find('"') != line.npos) return read_quoted(line, fields);
  split_fields(line, separator_, fields);
  return true;
}

/// Reads a record that starts with `line`, which has a quote in it.
bool RecordReader::read_quoted(std::string_view line, std::vector<std::string_view>& fields) {
  text_.clear();
  ends_.clear();
  bool is_in_quotes = false;
  bool is_at_start = true;  // of a field
  bool is_closed = false;   // whether the field ended with a quote
  for (;;) {
    for (std::size_t i = 0; i < line.size(); ++i) {
      const char c = line[i];
      if (is_in_quotes && c == '"' && i + 1 < line.size() && line[i + 1] == '"') {
        text_ += line[++i];
      } else if (is_in_quotes) {
        if (c == '"') {
          is_in_quotes = false;
          is_closed = true;
        } else {
          text_ += c;
        }
      } else if (c == separator_) {
        if (ends_.size() == MOST_FIELDS) return fail("the record has too many fields");
        ends_.push_back(text_.size());
        is_at_start = true;
        is_closed = false;
      } else if (is_closed) {
        return fail("there is text after the end of a field in quotes");
      } else if (c == '"' && is_at_start) {
        is_in_quotes = true;
        is_at_start = false;
      } else {
        text_ += c;
        is_at_start = false;
      }
    }
    if (!is_in_quotes) break;
    text_ += '\n';
    if (!lines_.next(line)) return fail(lines_.has_failed() ? "" : "a field in quotes has no end");
    if (text_.size() + line.size() > LONGEST_LINE) return fail("the record is too long");
  }
  ends_.push_back(text_.size());
  std::size_t start = 0;
  for (const std::size_t end : ends_) {
    fields.push_back(std::string_view(text_).substr(start, end - start));
    start = end;
  }
  return true;
}
