#include "text/time_formats.h"

const std::string DEFAULT_INPUT_TIME_FORMAT = "%F %R";
const std::string DEFAULT_OUTPUT_DATE_FORMAT = "%F";
const std::string DEFAULT_OUTPUT_TIME_FORMAT = "%R";
