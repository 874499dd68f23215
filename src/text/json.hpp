// JSON strings written straight into an output text.
#pragma once

#include <string>
#include <string_view>

namespace tarnwick::text {

// Appends a JSON string. Bytes that are not UTF-8, which paths from the file system may hold,
// become U+FFFD a maximal ill-formed subpart at a time, as the engine decodes text.
void append_json_string(std::string& out, std::string_view text);

}  // namespace tarnwick::text
