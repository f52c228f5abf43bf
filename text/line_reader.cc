#include "text/line_reader.h"

#include <cstdlib>
#include <utility>

LineReader::~LineReader() { std::free(buffer_); }

bool LineReader::next(std::string_view& line) {
  if (ahead_.empty()) {
    if (!read(line)) return false;
  } else {
    current_ = std::move(ahead_.front());
    ahead_.pop_front();
    line = current_;
  }
  ++number_;
  return true;
}

bool LineReader::look_ahead(std::string_view& line) {
  if (!read(line)) return false;
  ahead_.emplace_back(line);
  return true;
}

bool LineReader::read(std::string_view& line) {
  const ssize_t size = getline(&buffer_, &capacity_, file_);
  if (size < 0) return false;
  bytes_ += static_cast<std::uint64_t>(size);
  line = std::string_view(buffer_, static_cast<std::size_t>(size));
  if (line.ends_with('\n')) line.remove_suffix(1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return true;
}
