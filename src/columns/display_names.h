// Names that people gave to parameters, from the CDS.
#pragma once

#include <string>
#include <vector>

#include "trendlog/dump_context.h"

/// Composes one display name per selected parameter: the display names of all levels of its path,
/// joined by " / ". A level without one counts with its path. Reads all of them from the CDS in one
/// request. Returns 0, or 1 with `names` empty after a message on standard error.
[[nodiscard]] int fetch_display_names(DumpContext& context, std::vector<std::string>& names);
