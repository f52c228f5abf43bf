// Where a subcommand writes its result.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// A file that appears when it is complete, or standard output.
///
/// A regular file is written under another name in the same folder, and `finish` renames it. If the
/// program ends before that, also by SIGINT, SIGTERM or SIGHUP, the other file is removed, and the
/// wanted one is as it was. Anything else, like a pipe or a device, is written directly. There must
/// be only one of these objects at a time.
///
/// Functions that return a bool return false on failure, and `error` then says why.
class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Opens the file at `path`, or standard output if `path` is empty. Fails if it is a file of the
  /// database at `db_path`.
  [[nodiscard]] bool open(const std::string& path, const std::string& db_path);

  /// Adds `text` to the file. It is kept in memory until there is more of it.
  [[nodiscard]] bool write(std::string_view text) {
    if (text.size() > buffer_.size() - used_) return write_more(text);
    text.copy(buffer_.data() + used_, text.size());
    used_ += text.size();
    return true;
  }

  /// Returns a place for at most `size` bytes, up to MAX_PLACE, which the caller fills from its
  /// start and then hands to `take`. A failure to write what was there before is noted:
  /// `has_failed` returns it, and `finish` fails.
  [[nodiscard]] char* place(std::size_t size) {
    if (size > buffer_.size() - used_ && !flush()) has_failed_ = true;
    return buffer_.data() + used_;
  }
  /// Adds the bytes up to `end` in the place that `place` returned last.
  void take(const char* end) { used_ = static_cast<std::size_t>(end - buffer_.data()); }
  [[nodiscard]] bool has_failed() const { return has_failed_; }

  /// Does what `write` does, and notes a failure as `place` does.
  void add(std::string_view text) {
    if (!write(text)) has_failed_ = true;
  }

  static constexpr std::size_t MAX_PLACE = 4096;

  /// Writes what is still in memory.
  [[nodiscard]] bool flush();

  /// Completes the file: writes, closes and renames it. No other function may follow.
  [[nodiscard]] bool finish();

  /// The name under which a regular file is written until `finish`, for a library that writes it by
  /// itself. Empty for everything else.
  [[nodiscard]] std::string written_path() const { return is_temporary_ ? written_path_ : ""; }

  /// Why the last call that failed did, with the name of the file.
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  [[nodiscard]] bool open_beside(unsigned permissions);
  [[nodiscard]] bool open_directly(const std::string& path);
  [[nodiscard]] bool write_more(std::string_view text);
  [[nodiscard]] bool write_all(std::string_view text);
  bool fail(const std::string& what, int error_number);
  bool fail_to_write(int error_number);

  std::string name_;          ///< for messages
  std::string wanted_path_;   ///< the final name, links followed
  std::string written_path_;  ///< the name until then
  int file_ = -1;
  bool is_temporary_ = false;
  std::vector<char> buffer_ = std::vector<char>(BUFFER_SIZE);
  std::size_t used_ = 0;
  bool has_failed_ = false;
  std::string error_;

  static constexpr std::size_t BUFFER_SIZE = std::size_t{64} * 1024;
};

/// Writes `text` to standard output, and closes that. Returns the exit status, after a message if
/// it is not 0.
[[nodiscard]] int print_result(std::string_view text);
