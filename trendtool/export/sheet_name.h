// The names of the sheets of a spreadsheet.
#pragma once

#include <set>
#include <string>

/// Makes names that Excel accepts: each at most 31 characters long, without the characters that it
/// refuses, and different from all others.
class SheetNames {
 public:
  /// Returns a name like `wanted`, with a number at its end if there is one like it already.
  [[nodiscard]] std::string make(const std::string& wanted);

 private:
  std::set<std::string> used_;  ///< in lower case
};
