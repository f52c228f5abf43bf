// Damage of a database in words.
#pragma once

#include <string>

#include "libtrend/records.h"

/// Returns one line about `damage`, without a line feed: which rows are meant, and what is wrong.
[[nodiscard]] std::string describe_damage(const toolkit::trend::CDamage& damage, bool use_utc);
