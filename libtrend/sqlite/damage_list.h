// What was found to be damaged.
#pragma once

#include <set>
#include <tuple>
#include <utility>

#include "libtrend/records.h"

namespace toolkit::trend {

/// The order of damage: by device, interval and time.
struct DamageOrder {
  bool operator()(const CDamage& a, const CDamage& b) const { return key(a) < key(b); }
  static std::tuple<const std::string&, std::uint32_t, std::int64_t, std::int64_t,
                    const std::string&, const std::string&>
  key(const CDamage& damage) {
    return {damage.device, damage.minutes, damage.first, damage.last, damage.param, damage.text};
  }
};

/// Damage that is noted each time it is met, and is then in the list once.
using DamageList = std::set<CDamage, DamageOrder>;

}  // namespace toolkit::trend
