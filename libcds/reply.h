// The bytes of requests to a Redis server, and of its replies.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// How far a reply has come.
enum class ReplyState { INCOMPLETE, COMPLETE, WRONG };

/// Returns the request that consists of `words`.
[[nodiscard]] std::string format_request(const std::vector<std::string_view>& words);

/// Reads the reply to a request for texts, as its bytes come. It never takes more memory than the
/// texts that it keeps.
class TextsReader {
 public:
  /// The reply must have `count` entries, at least 1.
  explicit TextsReader(std::size_t count) : count_(count) {}

  /// Reads the next bytes. A reply of another type, or with bytes after its end, is wrong. So is
  /// one whose texts have more than `toolkit::LONGEST_TEXTS` bytes together.
  [[nodiscard]] ReplyState read(std::string_view bytes);

  /// Returns the texts of a complete reply in the order of the request. Nothing stands for what
  /// does not exist, is not a text, or is longer than `toolkit::LONGEST_TEXT`.
  [[nodiscard]] std::vector<std::optional<std::string>>& texts() { return texts_; }

 private:
  bool end_line();
  bool start_text(std::string_view size);

  std::size_t count_;
  std::vector<std::optional<std::string>> texts_;
  std::string line_;              ///< what has come of the current line
  bool has_count_ = false;        ///< whether the first line has come
  bool is_after_text_ = false;    ///< whether the current line is the end of a text
  std::size_t bytes_left_ = 0;    ///< of the current text
  std::size_t bytes_in_all_ = 0;  ///< of all texts that are kept
};
