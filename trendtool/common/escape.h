// Texts as formats of output have them.
#pragma once

#include <string>
#include <string_view>

/// Appends a field of CSV, in quotes if it needs them where fields are separated by `separator`.
void append_csv_field(std::string_view field, char separator, std::string& text);

/// Appends a string of JSON with its quotes. What is not UTF-8 becomes U+FFFD.
void append_json_string(std::string_view value, std::string& text);
