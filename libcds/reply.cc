#include "libcds/reply.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "libcds/cds.h"

namespace {

constexpr std::string_view LINE_END = "\r\n";

bool parse_size(std::string_view text, std::size_t& size) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, size);
  return error == std::errc() && stop == end;
}

}  // namespace

std::string format_request(const std::vector<std::string_view>& words) {
  std::string request("*");
  request.append(std::to_string(words.size())).append(LINE_END);
  for (const std::string_view word : words) {
    request.append("$").append(std::to_string(word.size())).append(LINE_END);
    request.append(word).append(LINE_END);
  }
  return request;
}

ReplyState TextsReader::read(std::string_view bytes) {
  // A type and a number.
  constexpr std::size_t LONGEST_LINE = 32;
  const auto is_complete = [this] {
    return texts_.size() == count_ && bytes_left_ == 0 && !is_after_text_;
  };
  while (!bytes.empty()) {
    if (is_complete()) return ReplyState::WRONG;
    if (bytes_left_ > 0) {
      const std::string_view part = bytes.substr(0, bytes_left_);
      if (texts_.back()) *texts_.back() += part;
      bytes_left_ -= part.size();
      bytes.remove_prefix(part.size());
      continue;
    }
    line_ += bytes.front();
    bytes.remove_prefix(1);
    if (line_.ends_with(LINE_END)) {
      line_.resize(line_.size() - LINE_END.size());
      if (!end_line()) return ReplyState::WRONG;
      line_.clear();
    } else if (line_.size() > LONGEST_LINE) {
      return ReplyState::WRONG;
    }
  }
  return is_complete() ? ReplyState::COMPLETE : ReplyState::INCOMPLETE;
}

/// Reads the current line, without its end. Returns false if it is wrong.
bool TextsReader::end_line() {
  const std::string_view line = line_;
  if (is_after_text_) {
    is_after_text_ = false;
    return line.empty();
  }
  if (!has_count_) {
    has_count_ = true;
    std::size_t count = 0;
    return line.starts_with('*') && parse_size(line.substr(1), count) && count == count_;
  }
  return line.starts_with('$') && start_text(line.substr(1));
}

/// Starts a text of `size` bytes. -1 stands for none.
bool TextsReader::start_text(std::string_view size) {
  if (size == "-1") {
    texts_.emplace_back();
    return true;
  }
  if (!parse_size(size, bytes_left_)) return false;
  is_after_text_ = true;
  if (bytes_left_ > toolkit::LONGEST_TEXT) {
    texts_.emplace_back();
    return true;
  }
  texts_.emplace_back("");
  bytes_in_all_ += bytes_left_;
  return bytes_in_all_ <= toolkit::LONGEST_TEXTS;
}
