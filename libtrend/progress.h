// How a function that takes long tells how far it has come.
#pragma once

#include <cstdint>
#include <functional>

namespace toolkit::trend {

/// Is called now and then during long work, with how much of it is done and how much there is; the
/// unit is that of the function. `total` is 0 if it is not known. Returns whether the work shall go
/// on.
using ReportProgress = std::function<bool(std::uint64_t done, std::uint64_t total)>;

}  // namespace toolkit::trend
