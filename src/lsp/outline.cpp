#include "lsp/outline.hpp"

#include <algorithm>

#include "engines/markdown/node.hpp"
#include "repo/outline.hpp"
#include "tarnwick/markdown.hpp"

namespace tarnwick::lsp {

namespace {

// Editors show the protocol's "String" kind for Markdown headings, as their own Markdown
// support does; "Namespace" would present them as code.
constexpr int STRING_KIND = 15;

bool is_folded_block(std::string_view type) {
  using namespace engines::markdown::detail;
  return type == "fenced_code_block" || type == "indented_code_block" ||
         type == YAML_FRONT_MATTER || type == TOML_FRONT_MATTER;
}

std::vector<DocumentOutline::Block> blocks_of(const Document& document) {
  std::vector<DocumentOutline::Block> blocks;
  const std::string& text = document.text();
  engines::markdown::detail::walk(document.root(), [&](engines::markdown::Node node) {
    if (!is_folded_block(ts_node_type(node.node))) return true;
    // A block ends at its last line with text: an indented code block holds the blank lines
    // after it, and every block the line end of its last line.
    const std::uint32_t start = ts_node_start_byte(node.node);
    std::uint32_t end = ts_node_end_byte(node.node);
    while (end > start &&
           (text[end - 1] == '\n' || text[end - 1] == ' ' || text[end - 1] == '\t')) {
      --end;
    }
    const auto lines =
        static_cast<std::uint32_t>(std::count(text.begin() + start, text.begin() + end, '\n'));
    const std::uint32_t first = ts_node_start_point(node.node).row;
    if (lines > 0) blocks.push_back({first, first + lines});
    return false;
  });
  return blocks;
}

}  // namespace

DocumentOutline outline_of(std::string_view text) {
  MarkdownParser parser;
  const Document document(parser, normalize_line_endings(std::string(text)));
  return {engines::markdown::extract_sections(document.root(), document.text(), "", 0, {}),
          blocks_of(document)};
}

Json document_symbols(const DocumentOutline& outline, const Text& text, PositionEncoding encoding,
                      bool hierarchical, std::string_view uri) {
  const std::vector<Symbol>& sections = outline.sections;
  const auto line_range = [&](std::int64_t first, std::int64_t last) {
    const auto clamp = [&](std::int64_t line) {
      return static_cast<std::uint32_t>(
          std::clamp<std::int64_t>(line - 1, 0, static_cast<std::int64_t>(text.line_count()) - 1));
    };
    return Range{{clamp(first), 0}, {clamp(last), text.line_length(clamp(last), encoding)}};
  };
  const std::vector<std::size_t> parents = repo::section_parents(sections);
  if (!hierarchical) {
    Json symbols = Json::array();
    for (std::size_t i = 0; i < sections.size(); ++i) {
      Json symbol = {
          {"name", sections[i].name},
          {"kind", STRING_KIND},
          {"location",
           {{"uri", uri}, {"range", line_range(sections[i].start_line, sections[i].end_line)}}}};
      if (parents[i] != repo::NO_PARENT) symbol["containerName"] = sections[parents[i]].name;
      symbols.push_back(std::move(symbol));
    }
    return symbols;
  }
  std::vector<std::size_t> roots;
  std::vector<std::vector<std::size_t>> children(sections.size());
  for (std::size_t i = 0; i < sections.size(); ++i) {
    (parents[i] == repo::NO_PARENT ? roots : children[parents[i]]).push_back(i);
  }
  // Sections nest at most as deep as heading levels go, below a front matter title.
  const auto symbol = [&](const auto& self, std::size_t i) -> Json {
    Json nested = Json::array();
    for (const std::size_t child : children[i]) nested.push_back(self(self, child));
    return {{"name", sections[i].name},
            {"kind", STRING_KIND},
            {"range", line_range(sections[i].start_line, sections[i].end_line)},
            {"selectionRange", line_range(sections[i].start_line, sections[i].start_line)},
            {"children", std::move(nested)}};
  };
  Json symbols = Json::array();
  for (const std::size_t root : roots) symbols.push_back(symbol(symbol, root));
  return symbols;
}

Json folding_ranges(const DocumentOutline& outline) {
  Json ranges = Json::array();
  for (const Symbol& section : outline.sections) {
    if (section.end_line > section.start_line) {
      ranges.push_back({{"startLine", section.start_line - 1}, {"endLine", section.end_line - 1}});
    }
  }
  for (const DocumentOutline::Block& block : outline.blocks) {
    ranges.push_back({{"startLine", block.first_line}, {"endLine", block.last_line}});
  }
  return ranges;
}

OutlineFeature::OutlineFeature(Session& session) : session_(session) {
  session.add_capabilities({{"documentSymbolProvider", true}, {"foldingRangeProvider", true}});
  session.on_request("textDocument/documentSymbol", [this](const Json& params, Reply reply) {
    request(params, std::move(reply), Answer::symbols);
  });
  session.on_request("textDocument/foldingRange", [this](const Json& params, Reply reply) {
    request(params, std::move(reply), Answer::folds);
  });
  session.on_document([this](DocumentEvent event, const OpenDocument& document) {
    if (event != DocumentEvent::closed) return;
    const auto found = entries_.find(document.uri);
    if (found == entries_.end()) return;
    for (Waiting& waiting : found->second.waiting) {
      waiting.reply.error(error_code::CONTENT_MODIFIED, "the document was closed");
    }
    entries_.erase(found);
  });
}

void OutlineFeature::request(const Json& params, Reply reply, Answer answer) {
  const std::string uri = params.at("textDocument").at("uri").get<std::string>();
  const OpenDocument* document = session_.document(uri);
  if (!document) {
    reply.error(error_code::REQUEST_FAILED, "the document is not open: " + uri);
    return;
  }
  Entry& entry = entries_[uri];
  if (entry.text && entry.version == document->version) {
    if (entry.outline) {
      this->answer(uri, entry, {std::move(reply), answer});
    } else {
      entry.waiting.push_back({std::move(reply), answer});
    }
    return;
  }
  // A new version: requests still waiting for an older one get this one's outline.
  entry.version = document->version;
  entry.text = document->text;
  entry.outline.reset();
  entry.waiting.push_back({std::move(reply), answer});
  session_.run_in_background([this, uri, version = entry.version, text = entry.text] {
    auto outline = std::make_shared<const DocumentOutline>(outline_of(text->bytes()));
    session_.post([this, uri, version, outline = std::move(outline)] {
      const auto found = entries_.find(uri);
      if (found == entries_.end() || found->second.version != version) return;
      Entry& done = found->second;
      done.outline = outline;
      for (Waiting& waiting : done.waiting) this->answer(uri, done, std::move(waiting));
      done.waiting.clear();
    });
  });
}

void OutlineFeature::answer(const std::string& uri, const Entry& entry, Waiting waiting) const {
  if (waiting.reply.cancelled()) return;
  if (waiting.answer == Answer::folds) {
    waiting.reply.result(folding_ranges(*entry.outline));
    return;
  }
  const bool hierarchical =
      member(session_.client_capabilities(),
             {"textDocument", "documentSymbol", "hierarchicalDocumentSymbolSupport"}) == true;
  waiting.reply.result(
      document_symbols(*entry.outline, *entry.text, session_.encoding(), hierarchical, uri));
}

}  // namespace tarnwick::lsp
