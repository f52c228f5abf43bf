// The formats of dates and times that are used if the user gives no others.
#pragma once

#include <string>

/// For strptime: a date and a time of day as the two formats below print them, separated by a
/// blank.
extern const std::string DEFAULT_INPUT_TIME_FORMAT;
/// For strftime.
extern const std::string DEFAULT_OUTPUT_DATE_FORMAT;
extern const std::string DEFAULT_OUTPUT_TIME_FORMAT;
