#include "text/input_time.h"

bool parse_time(const std::string& text, const std::string& format, std::tm& fields) {
  fields = {};
  fields.tm_isdst = -1;
  const char* end = strptime(text.c_str(), format.c_str(), &fields);
  return end == text.c_str() + text.size();
}

std::time_t to_epoch(std::tm fields, bool use_utc) {
  return use_utc ? timegm(&fields) : mktime(&fields);
}
