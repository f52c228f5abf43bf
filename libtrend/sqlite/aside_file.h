// New files that appear under their names in one step.
#pragma once

#include <span>
#include <string>

namespace toolkit::trend {

/// A new file with a temporary name. The destructor removes it.
class AsideFile {
 public:
  AsideFile() = default;
  ~AsideFile();
  AsideFile(const AsideFile&) = delete;
  AsideFile& operator=(const AsideFile&) = delete;

  /// Creates the file in the folder of `path`. Returns false on failure, with the reason in
  /// `errno`.
  [[nodiscard]] bool create(const std::string& path);

  /// Writes and syncs the whole content, and closes the file. Returns false on failure, with the
  /// reason in `errno`.
  [[nodiscard]] bool fill(std::span<const unsigned char> content);

  /// Renames the file to `path`, but replaces no other file. Returns false on failure; `errno` is
  /// EEXIST if a file of that name exists.
  [[nodiscard]] bool move_to(const std::string& path);

  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  std::string name_;
  int file_ = -1;
};

/// Sets `error` to the reason in `errno`, and returns false.
bool fail_with_system_error(std::string& error);

/// Syncs the folder of `path`, so that the names in it are on the disk. Returns false on failure,
/// with the reason in `errno`.
[[nodiscard]] bool sync_folder(const std::string& path);

/// Returns the absolute path, with links resolved, under which SQLite opens `path`; empty on
/// failure.
[[nodiscard]] std::string resolve(const std::string& path);

}  // namespace toolkit::trend
