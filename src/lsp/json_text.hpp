// Protocol values written straight into a message's JSON text: an answer of a thousand
// locations or edits is written several times faster so than built as JSON values first.
#pragma once

#include <string>
#include <string_view>

#include "lsp/positions.hpp"

namespace tarnwick::lsp {

// {"line":..,"character":..}, {"start":..,"end":..}, {"uri":..,"range":..} and
// {"range":..,"newText":..}, appended to `out`; strings are escaped, bytes that are not UTF-8
// written as U+FFFD.
void append_range(std::string& out, const Range& range);
void append_location(std::string& out, std::string_view uri, const Range& range);
void append_text_edit(std::string& out, const Range& range, std::string_view text);

}  // namespace tarnwick::lsp
