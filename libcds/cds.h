// The client of the CDS, the data service that holds a tree of nodes under each device's path.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// An open connection to the CDS.
struct pcd_connection;

/// Connects to the CDS. `server` is the path of its socket; null means the one fixed when the
/// library was built. `flag` is reserved; pass 1. Returns, within one second, a handle that the
/// caller closes with `pcd_close`, or null where no CDS answers.
__attribute__((visibility("default"))) pcd_connection* pcd_init(const char* server, int flag);

/// Closes a connection and releases its handle; null is ignored.
__attribute__((visibility("default"))) void pcd_close(pcd_connection* handle);

namespace toolkit {

/// How the lookup of one leaf ended.
using api_status_t = std::uint32_t;
/// The leaf was found.
inline constexpr api_status_t API_STATUS_OK = 1;
/// There is no such leaf, or it holds no plain value.
inline constexpr api_status_t API_STATUS_NOT_FOUND = 2;

/// What kind of value an element holds.
using element_type_t = std::uint32_t;
inline constexpr element_type_t ELEMENT_TYPE_NONE = 0;
inline constexpr element_type_t ELEMENT_TYPE_TEXT = 6;

/// The value of one leaf.
class CElement {
 public:
  CElement() = default;
  CElement(element_type_t type, std::string text) : type_(type), text_(std::move(text)) {}

  [[nodiscard]] element_type_t type() const { return type_; }

  /// Replaces `text` with the value as text; bytes go through as they were published.
  void to_string(std::string& text) const { text = text_; }

 private:
  element_type_t type_ = ELEMENT_TYPE_NONE;
  std::string text_;
};

/// What the CDS tells of a leaf besides its value.
struct element_property_t {
  std::uint32_t flags = 0;  ///< unused
};

/// A CDS client; owns its connection.
class __attribute__((visibility("default"))) CCds {
 public:
  /// Connects when `connect_flag` is not 0; `handle` tells whether that succeeded.
  explicit CCds(int connect_flag);
  ~CCds();
  CCds(const CCds&) = delete;
  CCds& operator=(const CCds&) = delete;

  /// Connects to the CDS that the library was built for, unless connected already. Returns 0, or
  /// -1 where no CDS answers.
  int connect(int flag);
  void close();

  /// The connection, null while there is none; owned by this object.
  [[nodiscard]] pcd_connection* handle() const { return handle_; }

  /// Reads the leaves `paths` in one request, none where there are no paths. Fills the three
  /// vectors, which come empty, with one entry per path in the order of `paths` and returns 0. A
  /// leaf's bytes go through as they were published. Returns non-zero and leaves the vectors empty
  /// where the request fails as a whole: without a connection, or where no answer to all of it is
  /// there within five seconds. A connection that was lost, or that gave no such answer in time,
  /// is of no further use.
  [[nodiscard]] int get_leaves(const std::vector<std::string>& paths,
                               std::vector<api_status_t>& statuses, std::vector<CElement>& elements,
                               std::vector<element_property_t>& properties);

 private:
  pcd_connection* handle_ = nullptr;
};

}  // namespace toolkit
