// What must hold for any input; a violation aborts the fuzzer with a message.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "gfm/document.hpp"
#include "tarnwick/engines/markdown.hpp"

namespace tarnwick::fuzz {

// Stops the run with `what` when `condition` is false.
void require(bool condition, std::string_view what);

bool is_valid_utf8(std::string_view text);

// The records of a document of `line_count` lines under `prefix`.
void check_sections(std::span<const Symbol> sections, std::string_view prefix,
                    std::int64_t line_count);
void check_references(std::span<const engines::references::ReferenceInfo> references,
                      std::int64_t line_count);

// What the link checker reads of a document, `markdown`.
void check_links(const gfm::LinkedDocument& read, std::string_view markdown);

}  // namespace tarnwick::fuzz
