// The address of an archive: a connection URL of libpq, which may name a schema too.
#pragma once

#include <string>

namespace toolkit::trend {

struct ArchiveAddress {
  std::string url;     ///< what libpq gets
  std::string schema;  ///< whose tables are the archive; fit for SQL between double quotes
};

/// Takes the parameter `schema` out of the query of `url`; without it the schema is `trend`.
/// Returns false, with the reason in `error`, where libpq can't read the rest, where the name of
/// the schema is not made of small letters, digits and `_`, and where the URL holds a password: the
/// arguments of a program are visible to all users of a machine.
[[nodiscard]] bool parse_archive_url(const std::string& url, ArchiveAddress& address,
                                     std::string& error);

}  // namespace toolkit::trend
