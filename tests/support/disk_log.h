// Loss of power: a layer between SQLite and its files that notes every change, and a model of what
// the disk may hold if the power is lost after some of them.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// The contents of files by path.
using Files = std::map<std::string, std::string>;

/// One change that SQLite asked for.
struct DiskChange {
  enum class Kind {
    WRITE,     ///< of `bytes` at `place`
    TRUNCATE,  ///< to the size `place`
    REMOVE,    ///< of the file; lasting at once if `place` is 1
    SYNC,      ///< makes all changes to the file lasting, and its name
    MARK,      ///< nothing: a test has noted this moment
  };
  Kind kind = Kind::MARK;
  std::string file;
  std::int64_t place = 0;
  std::string bytes;
};

/// Puts the layer under every connection that is opened from now on. To be called once, before
/// anything else uses SQLite.
void install_disk_log();

/// Starts to note changes, with an empty list. Stops if `is_on` is false.
void note_disk_changes(bool is_on);
/// Notes a mark.
void mark_disk_changes();
/// The changes that were noted, in order.
[[nodiscard]] const std::vector<DiskChange>& disk_changes();

/// A disk that makes changes lasting only when it is asked to. It writes sectors of 512 bytes, each
/// as a whole, in any order.
class Disk {
 public:
  /// `files` are all lasting.
  explicit Disk(Files files) : lasting_(std::move(files)) {}

  /// Makes the next change.
  void apply(const DiskChange& change);

  /// What the disk holds if the power is lost now. Of the changes that are not lasting yet, each
  /// sector, each new size and each removal is kept where `keeps` says so; it is asked in the order
  /// of the changes. The index of a write-ahead log is left out: it never is on the disk.
  [[nodiscard]] Files lose_power(const std::function<bool()>& keeps) const;

 private:
  Files lasting_;
  std::vector<DiskChange> pending_;
};
