#include "libtrend/postgres/url.h"

#include <libpq-fe.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>

namespace toolkit::trend {

namespace {

constexpr std::string_view SCHEMA = "schema=";
constexpr std::size_t LONGEST_NAME = 63;  // of PostgreSQL

bool is_name(std::string_view text) {
  return !text.empty() && text.size() <= LONGEST_NAME && !(text[0] >= '0' && text[0] <= '9') &&
         std::all_of(text.begin(), text.end(), [](char c) {
           return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
         });
}

/// Splits the parameters of a URL into that of the schema and those for libpq.
void split_parameters(std::string_view text, ArchiveAddress& address) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('&'), text.size());
    const std::string_view parameter = text.substr(0, end);
    if (parameter.starts_with(SCHEMA)) {
      address.schema = parameter.substr(SCHEMA.size());
    } else {
      address.url += address.url.find('?') == std::string::npos ? '?' : '&';
      address.url += parameter;
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

}  // namespace

bool parse_archive_url(const std::string& url, ArchiveAddress& address, std::string& error) {
  const std::size_t query = std::min(url.find('?'), url.size());
  address.url = url.substr(0, query);
  address.schema = "trend";
  if (query < url.size()) split_parameters(std::string_view(url).substr(query + 1), address);
  if (!is_name(address.schema)) {
    error = "the name of a schema has small letters, digits and '_' only";
    return false;
  }

  char* reason = nullptr;
  const std::unique_ptr<PQconninfoOption, decltype(&PQconninfoFree)> options(
      PQconninfoParse(address.url.c_str(), &reason), PQconninfoFree);
  const std::unique_ptr<char, decltype(&PQfreemem)> owned_reason(reason, PQfreemem);
  if (!options) {
    // libpq repeats what it can't read, which may be a password.
    error = "this is not an address that libpq can read";
    return false;
  }
  for (const PQconninfoOption* option = options.get(); option->keyword != nullptr; ++option) {
    if (std::string_view(option->keyword).find("password") != std::string_view::npos &&
        option->val != nullptr) {
      error = "a password in an address is visible to others; put it into ~/.pgpass";
      return false;
    }
  }
  return true;
}

}  // namespace toolkit::trend
