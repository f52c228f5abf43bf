#include "tests/fuzz/fixture.h"

#include <limits>

#include "tests/fuzz/fuzz.h"
#include "tests/support/model.h"

namespace {

ModelLog make_log() {
  constexpr double MISSING = std::numeric_limits<double>::quiet_NaN();
  constexpr std::int64_t BEGIN = 1679789700;  // 2023-03-26 00:15 in UTC
  ModelLog log;
  log.device = "plant";
  log.params = {{"level", MIN | MAX | AVG}, {"pump.speed", ACTUAL | SUM}, {"a b", ACTUAL}};
  log.minutes = {15, 60};
  for (int i = 0; i < 12; ++i) {
    const double value = i * 1.25;
    log.rows.push_back({15,
                        BEGIN + std::int64_t{900} * i,
                        i == 5 ? 0.5 : 1,
                        {value, value + 1e6, i == 3 ? MISSING : value, -value, 1e-7 * i, value}});
  }
  for (int i = 0; i < 6; ++i) {
    log.rows.push_back({60, BEGIN + 2700 + std::int64_t{3600} * i, 1, {1, 2, 3, 4, 5}});
  }
  return log;
}

}  // namespace

const std::string& make_fixture() {
  enter_work_folder();
  clear_work_folder();
  static const std::string CONTENT = [] {
    record(make_log(), "trend.db");
    return read_file("trend.db");
  }();
  write_file("trend.db", CONTENT);
  return CONTENT;
}

bool add_arguments(std::span<const std::uint8_t> input, std::vector<std::string>& words) {
  const std::string_view text(reinterpret_cast<const char*>(input.data()), input.size());
  if (text.find('/') != text.npos || text.find('\0') != text.npos) return false;
  for (std::string& word : split(text, '\n')) words.push_back(std::move(word));
  return true;
}
