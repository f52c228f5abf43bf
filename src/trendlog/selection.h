// What to dump: the device, parameters and intervals of the log that the user named.
#pragma once

#include "libtrend/log.h"
#include "trendlog/dump_context.h"
#include "trendlog/dump_options.h"

/// Finds what `options` name in the catalogue of the open log, and sets the selection, the time
/// range and the rows to skip of `context`. A name given twice is selected twice. Returns 0, or 1
/// after a message on standard error.
[[nodiscard]] int select_catalogue(DumpContext& context, const DumpOptions& options);

/// The order of columns where no parameter is named: top-level names first, then by folder, a
/// folder's own entries before those of its subfolders; byte by byte otherwise.
[[nodiscard]] bool param_path_less(const toolkit::trend::CParamProperties& a,
                                   const toolkit::trend::CParamProperties& b);
