#include "trendtool/common/damage_text.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <limits>

#include "text/csv.h"
#include "trendtool/common/iso_time.h"

using toolkit::trend::CDamage;

namespace {

/// Returns whether a time is one of those that rows can have and a clock can show, and not just the
/// start or the end of all time.
bool is_shown(std::int64_t time) {
  constexpr std::int64_t END_OF_YEAR_9999 = 253402300799;
  constexpr std::int64_t LAST_SHOWN =
      std::min<std::int64_t>(END_OF_YEAR_9999, std::numeric_limits<std::time_t>::max());
  return time > 1 && time <= LAST_SHOWN;
}

std::string describe_times(const CDamage& damage, bool use_utc) {
  if (damage.last == 0) return "";
  IsoClock clock(use_utc);
  const auto text_of = [&](std::int64_t time) {
    return clock.text_of(static_cast<std::time_t>(time));
  };
  if (damage.first == damage.last && is_shown(damage.first)) return ", " + text_of(damage.first);
  std::string text;
  if (is_shown(damage.first)) text += " from " + text_of(damage.first);
  if (is_shown(damage.last)) text += (text.empty() ? " up to " : " to ") + text_of(damage.last);
  return text.empty() ? ", all rows" : "," + text;
}

}  // namespace

std::string describe_damage(const CDamage& damage, bool use_utc) {
  std::string text;
  if (!damage.device.empty()) text = "device " + quote(damage.device);
  if (damage.minutes != 0) {
    text += (text.empty() ? "interval of " : ", interval of ") + std::to_string(damage.minutes) +
            (damage.minutes == 1 ? " minute" : " minutes");
  }
  if (!damage.param.empty()) {
    text += (text.empty() ? "parameter " : ", parameter ") + quote(damage.param);
  }
  text += describe_times(damage, use_utc);
  return text.empty() ? damage.text : text + ": " + damage.text;
}
