// What to dump: the device, parameters and intervals of the log that the user named.
#pragma once

#include "libtrend/log.h"
#include "trendlog/dump_context.h"
#include "trendlog/dump_options.h"

/// Looks up what `options` name in the catalogue of the open log. Sets the selection, the time
/// range and the number of rows to skip of `context`. A name given twice is selected twice. Returns
/// 0, or 1 after a message on standard error.
[[nodiscard]] int select_catalogue(DumpContext& context, const DumpOptions& options);

/// The order of columns if the user names no parameter. Returns whether `a` comes before `b`: names
/// without a folder come first, and the entries of a folder come before those of its subfolders.
/// Otherwise paths are compared byte by byte.
[[nodiscard]] bool param_path_less(const toolkit::trend::CParamProperties& a,
                                   const toolkit::trend::CParamProperties& b);
