#include "text/line_reader.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

bool LineReader::next(std::string_view& line) {
  if (ahead_.empty()) {
    if (!read(line)) return false;
  } else {
    current_ = std::move(ahead_.front());
    ahead_.pop_front();
    bytes_ahead_ -= current_.size();
    line = current_;
  }
  ++number_;
  return true;
}

bool LineReader::look_ahead(std::string_view& line) {
  constexpr std::size_t MOST_LINES = 10'000;
  if (ahead_.size() >= MOST_LINES || bytes_ahead_ >= LONGEST_LINE || !read(line)) return false;
  ahead_.emplace_back(line);
  bytes_ahead_ += line.size();
  return true;
}

bool LineReader::read(std::string_view& line) {
  if (error_ != 0) return false;
  std::size_t searched = start_;
  const void* line_feed = nullptr;
  while ((line_feed = std::memchr(&buffer_[searched], '\n', end_ - searched)) == nullptr) {
    searched = end_ - start_;  // where it is after `fill`
    if (searched > LONGEST_LINE) break;
    if (!fill()) return false;
    if (is_at_end_) break;
  }
  const std::size_t size =
      line_feed == nullptr
          ? end_ - start_
          : static_cast<std::size_t>(static_cast<const char*>(line_feed) - &buffer_[start_]) + 1;
  if (size == 0) return false;
  line = std::string_view(&buffer_[start_], size);
  if (line.ends_with('\n')) line.remove_suffix(1);
  if (line.size() > LONGEST_LINE) {
    error_ = EMSGSIZE;
    return false;
  }
  if (line.ends_with('\r')) line.remove_suffix(1);
  start_ += size;
  bytes_ += size;
  return true;
}

/// Moves what was not returned yet to the start of the buffer and reads more after it. Returns
/// false on failure.
bool LineReader::fill() {
  std::memmove(buffer_.data(), &buffer_[start_], end_ - start_);
  end_ -= std::exchange(start_, 0);
  if (end_ == buffer_.size()) buffer_.resize(2 * buffer_.size());
  ssize_t size = -1;
  do {
    size = ::read(file_, &buffer_[end_], buffer_.size() - end_);
  } while (size < 0 && errno == EINTR);
  if (size < 0) {
    error_ = errno;
    return false;
  }
  is_at_end_ = size == 0;
  end_ += static_cast<std::size_t>(size);
  return true;
}
