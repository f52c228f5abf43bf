// The names of parameters that are meant for people. They come from the CDS.
#pragma once

#include <string>
#include <vector>

#include "trendlog/dump_context.h"

/// How a request for display names ended.
enum class DisplayNames { FOUND, NO_CONNECTION, NOT_READ };

/// Sets `names` to one display name for each parameter of `selection`, in the same order. A display
/// name consists of the display names of all levels of the parameter's path, joined by " / ". A
/// level without a display name is shown by its path. All of them are read from the CDS in one
/// request. `names` is empty unless they are found.
[[nodiscard]] DisplayNames read_display_names(const toolkit::trend::CDeviceParams& selection,
                                              std::vector<std::string>& names);

/// Does this for the selected parameters of `context`. Returns 0, or 1 after a message on standard
/// error.
[[nodiscard]] int fetch_display_names(DumpContext& context, std::vector<std::string>& names);
