#include "lsp/json_text.hpp"

#include "text/json.hpp"

namespace tarnwick::lsp {

namespace {

void append_position(std::string& out, const Position& position) {
  out.append(R"({"line":)")
      .append(std::to_string(position.line))
      .append(R"(,"character":)")
      .append(std::to_string(position.character))
      .append("}");
}

}  // namespace

void append_range(std::string& out, const Range& range) {
  out.append(R"({"start":)");
  append_position(out, range.start);
  out.append(R"(,"end":)");
  append_position(out, range.end);
  out.append("}");
}

void append_location(std::string& out, std::string_view uri, const Range& range) {
  out.append(R"({"uri":)");
  text::append_json_string(out, uri);
  out.append(R"(,"range":)");
  append_range(out, range);
  out.append("}");
}

void append_text_edit(std::string& out, const Range& range, std::string_view text) {
  out.append(R"({"range":)");
  append_range(out, range);
  out.append(R"(,"newText":)");
  text::append_json_string(out, text);
  out.append("}");
}

}  // namespace tarnwick::lsp
