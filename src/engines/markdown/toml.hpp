// TOML front matter: the top table's title and description when they are one-line strings.
#pragma once

#include <string>
#include <string_view>

#include "engines/markdown/fields.hpp"
#include "engines/markdown/regex.hpp"

namespace tarnwick::engines::markdown::detail {

// A whole line that sets the title or the description (group 1) to a string (group 2).
extern const Regex TOML_FIELD;
// A line that opens another table, after which nothing is read.
extern const Regex TOML_TABLE;

// The string fields of the top table, the last line of a key winning. Never fails.
Fields toml_fields(std::string_view body);

// The value of a string as written, quotes included: a literal string verbatim, a basic
// string decoded as JSON. A string that does not decode is kept as written between its quotes.
std::string toml_string(std::string_view literal);

}  // namespace tarnwick::engines::markdown::detail
