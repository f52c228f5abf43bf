// The names of parameters that are meant for people. They come from the CDS.
#pragma once

#include <string>
#include <vector>

#include "trendlog/dump_context.h"

/// Sets `names` to one display name for each selected parameter of `context`, in the same order. A
/// display name consists of the display names of all levels of the parameter's path, joined by " /
/// ". A level without a display name is shown by its path. All of them are read from the CDS in one
/// request. Returns 0, or 1 after a message on standard error, with `names` empty.
[[nodiscard]] int fetch_display_names(DumpContext& context, std::vector<std::string>& names);
