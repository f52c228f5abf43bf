#include "tests/support/made_result.h"

#include <libpq-fe.h>

#include <stdexcept>

using toolkit::trend::Result;

void append_number(std::uint64_t number, std::size_t size, std::string& bytes) {
  while (size-- > 0) bytes += static_cast<char>(number >> 8 * size & 0xFF);
}

Result make_result(const std::vector<std::string>& columns) {
  Result result(PQmakeEmptyPGresult(nullptr, PGRES_TUPLES_OK));
  std::vector<std::string> names(columns.size(), "column");
  std::vector<PGresAttDesc> descriptions;
  for (std::string& name : names) descriptions.push_back({name.data(), 0, 0, 1, 1022, -1, -1});
  bool is_made =
      PQsetResultAttrs(result.get(), static_cast<int>(columns.size()), descriptions.data()) == 1;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    std::string bytes = columns[i];
    is_made = is_made && PQsetvalue(result.get(), 0, static_cast<int>(i), bytes.data(),
                                    static_cast<int>(bytes.size())) == 1;
  }
  if (!is_made) throw std::runtime_error("can't make a result");
  return result;
}
