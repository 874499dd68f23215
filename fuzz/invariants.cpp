#include "invariants.hpp"

#include <cstdio>
#include <cstdlib>

#include "text/utf8.hpp"

using namespace tarnwick::text;

namespace tarnwick::fuzz {

void require(bool condition, std::string_view what) {
  if (condition) return;
  std::fprintf(stderr, "invariant broken: %.*s\n", static_cast<int>(what.size()), what.data());
  std::abort();
}

bool is_valid_utf8(std::string_view text) {
  return decode_utf8(text) == text;
}

void check_sections(std::span<const Symbol> sections, std::string_view prefix,
                    std::int64_t line_count) {
  std::int64_t previous_start = 0;
  for (const Symbol& s : sections) {
    require(!s.name.empty(), "a section has a name");
    require(s.fqn.starts_with(std::string(prefix) + "."), "the FQN begins with the prefix");
    require(1 <= s.start_line && s.start_line <= s.end_line && s.end_line <= line_count,
            "start_line <= end_line within the document");
    require(s.start_line >= previous_start, "sections come in document order");
    require(code_point_count(s.signature) <= engines::markdown::MAX_PATH_LENGTH,
            "a signature has at most 200 code points");
    require(is_valid_utf8(s.name) && is_valid_utf8(s.fqn) && is_valid_utf8(s.signature) &&
                (!s.docstring || is_valid_utf8(*s.docstring)),
            "section texts are UTF-8");
    require(!s.docstring || !s.docstring->empty(), "a docstring is absent rather than empty");
    previous_start = s.start_line;
  }
}

void check_references(std::span<const engines::references::ReferenceInfo> references,
                      std::int64_t line_count) {
  std::int64_t previous_line = 1;
  for (const auto& r : references) {
    require(r.line >= previous_line && r.line <= line_count, "references come in line order");
    require(!r.name.empty() || r.qualifier, "a reference names something");
    require(!r.qualifier || !r.qualifier->empty(), "a qualifier is absent rather than empty");
    require(is_valid_utf8(r.name) && (!r.qualifier || is_valid_utf8(*r.qualifier)),
            "reference texts are UTF-8");
    previous_line = r.line;
  }
}

namespace {

bool within(const gfm::Span& span, std::string_view text) {
  return span.begin <= span.end && span.end <= text.size();
}

}  // namespace

void check_links(const gfm::LinkedDocument& read, std::string_view markdown) {
  std::int64_t lines = 1;
  for (std::size_t pos = 0; pos < markdown.size(); ++pos) {
    if (markdown[pos] == '\r' && pos + 1 < markdown.size() && markdown[pos + 1] == '\n') ++pos;
    if (markdown[pos] == '\n' || markdown[pos] == '\r') ++lines;
  }
  for (const gfm::Link& link : read.links) {
    require(link.line >= 1 && link.line <= lines, "a link is on a line of the document");
    require(link.column >= 1, "a link's column counts from 1");
    require(!link.destination.empty() && !gfm::is_external(link.destination),
            "a link leads into the repository");
    require(within(link.span, markdown) && within(link.written_span, markdown),
            "a link stands in the document");
    require(
        link.written_span.empty() ||
            (markdown.substr(link.written_span.begin,
                             link.written_span.end - link.written_span.begin) == link.written &&
             link.span.begin <= link.written_span.begin && link.written_span.end <= link.span.end),
        "a link's destination stands where it is written, inside the link");
  }
  for (const gfm::Definition& definition : read.definitions) {
    require(within(definition.span, markdown) &&
                definition.span.begin < definition.label_span.begin &&
                definition.label_span.end < definition.span.end,
            "a definition's label stands inside it");
  }
  for (const gfm::Reference& reference : read.references) {
    require(within(reference.span, markdown) && reference.span.begin < reference.label_span.begin &&
                reference.label_span.end < reference.span.end,
            "a reference's label stands inside it");
  }
  for (const gfm::Heading& heading : read.headings) {
    require(heading.level >= 1 && heading.level <= 6, "a heading has a level");
    require(within(heading.text_span, markdown), "a heading's text stands in the document");
  }
  for (const auto& anchor : read.anchors) require(!anchor.empty(), "an anchor has a name");
}

}  // namespace tarnwick::fuzz
