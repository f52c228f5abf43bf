// What the fuzzer of stored rows changes in a database.
#pragma once

#include <array>

/// The columns that are changed. Some of them have rules that refuse some values.
inline constexpr std::array NUMBERS = {
    std::array{"loose", "id"},
    std::array{"loose", "valid_ratio"},
    std::array{"series_state", "loose_rows"},
    std::array{"series_state", "unchecked_until"},
    std::array{"series_state", "first_block"},
    std::array{"series_state", "last_block"},
    std::array{"series_state", "blocks"},
    std::array{"series_state", "sealed_rows"},
    std::array{"series_state", "changes"},
    std::array{"series_state", "series_id"},
    std::array{"block", "id"},
    std::array{"block", "number"},
    std::array{"block", "first_time"},
    std::array{"block", "previous"},
    std::array{"block", "rows"},
    std::array{"block", "bytes"},
    std::array{"block", "segment_size"},
    std::array{"block", "change"},
    std::array{"segment", "id"},
    std::array{"database", "next_block"},
    std::array{"device", "id"},
    std::array{"parameter", "device_id"},
    std::array{"parameter", "first_slot"},
    std::array{"parameter", "statistics"},
    std::array{"series", "id"},
    std::array{"series", "minutes"},
    std::array{"series", "device_id"},
};
inline constexpr std::array BLOBS = {std::array{"loose", "samples"}, std::array{"block", "content"},
                                     std::array{"segment", "data"}, std::array{"device", "path"},
                                     std::array{"parameter", "path"}};
inline constexpr std::array TABLES = {"loose",    "series_state", "block",  "segment",
                                      "database", "device",       "series", "parameter"};
