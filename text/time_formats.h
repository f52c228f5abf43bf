// The formats of dates and times where the user does not choose others.
#pragma once

#include <string>

/// For strptime: a date and a time of day, separated by a blank, as the two formats below print
/// them.
extern const std::string DEFAULT_INPUT_TIME_FORMAT;
/// For strftime.
extern const std::string DEFAULT_OUTPUT_DATE_FORMAT;
extern const std::string DEFAULT_OUTPUT_TIME_FORMAT;
