// The script that makes gnuplot draw a picture.
#pragma once

#include <string>

#include "trendtool/plot/picture.h"

/// Returns a script that writes `picture` to gnuplot's standard output. It has the data in it, and
/// needs no other file.
[[nodiscard]] std::string make_script(const Picture& picture);
