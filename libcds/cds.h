// The client of the CDS, the data service that holds a tree of nodes under each device's path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// An open connection to the CDS.
struct pcd_connection;

/// Connects to the CDS. `server` is the path of its socket; null means the path that was set when
/// the library was built. `flag` is reserved; pass 1. Returns within one second: a handle that the
/// caller closes with `pcd_close`, or null if no CDS answers.
__attribute__((visibility("default"))) pcd_connection* pcd_init(const char* server, int flag);

/// Closes a connection and releases its handle; null is ignored.
__attribute__((visibility("default"))) void pcd_close(pcd_connection* handle);

namespace toolkit {

/// The result of the lookup of one leaf.
using api_status_t = std::uint32_t;
/// The leaf was found.
inline constexpr api_status_t API_STATUS_OK = 1;
/// There is no such leaf, its value is not a text, or the text is longer than `LONGEST_TEXT`.
inline constexpr api_status_t API_STATUS_NOT_FOUND = 2;

/// The longest text that is read from a leaf, in bytes.
inline constexpr std::size_t LONGEST_TEXT = 4096;
/// The longest texts that one request reads, in bytes all together.
inline constexpr std::size_t LONGEST_TEXTS = std::size_t{16} << 20;

/// The type of the value of an element.
using element_type_t = std::uint32_t;
inline constexpr element_type_t ELEMENT_TYPE_NONE = 0;
inline constexpr element_type_t ELEMENT_TYPE_TEXT = 6;

/// The value of one leaf.
class CElement {
 public:
  CElement() = default;
  CElement(element_type_t type, std::string text) : type_(type), text_(std::move(text)) {}

  [[nodiscard]] element_type_t type() const { return type_; }

  /// Sets `text` to the value as text, with exactly the bytes that were published.
  void to_string(std::string& text) const { text = text_; }

 private:
  element_type_t type_ = ELEMENT_TYPE_NONE;
  std::string text_;
};

/// Further properties of a leaf.
struct element_property_t {
  std::uint32_t flags = 0;  ///< unused
};

/// A CDS client; owns its connection.
class __attribute__((visibility("default"))) CCds {
 public:
  /// Connects if `connect_flag` is not 0; `handle` is null if that failed.
  explicit CCds(int connect_flag);
  ~CCds();
  CCds(const CCds&) = delete;
  CCds& operator=(const CCds&) = delete;

  /// Connects to the socket that was set when the library was built, if not connected yet. Returns
  /// 0, or -1 if no CDS answers.
  int connect(int flag);
  void close();

  /// Returns the connection, or null if there is none. This object owns it.
  [[nodiscard]] pcd_connection* handle() const { return handle_; }

  /// Reads the leaves `paths` in one request; sends nothing if there are no paths. Fills the three
  /// vectors, which must be empty, with one entry per path in the order of `paths`, and returns 0.
  /// A text has exactly the bytes that were published. Returns non-zero and leaves the vectors
  /// empty if the request fails as a whole: there is no connection, no complete answer comes
  /// within five seconds, or the texts are longer than `LONGEST_TEXTS`. If the connection was lost
  /// or the answer was late or too long, all later calls fail too. While it reads, it needs memory
  /// for the texts that it returns, whatever the server sends.
  [[nodiscard]] int get_leaves(const std::vector<std::string>& paths,
                               std::vector<api_status_t>& statuses, std::vector<CElement>& elements,
                               std::vector<element_property_t>& properties);

 private:
  pcd_connection* handle_ = nullptr;
};

}  // namespace toolkit
