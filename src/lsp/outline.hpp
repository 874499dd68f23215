// The outline of an open document, needing no repository: textDocument/documentSymbol (its
// sections, nested, as `tarnwick-md outline` shows them) and textDocument/foldingRange (its
// sections, code blocks and front matter).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "lsp/session.hpp"
#include "tarnwick/models.hpp"

namespace tarnwick::lsp {

// What one parse of a document gives: its sections (line numbers from 1, as the engine gives
// them) and the lines of its code blocks and front matter (from 0).
struct DocumentOutline {
  struct Block {
    std::uint32_t first_line;
    std::uint32_t last_line;
  };
  std::vector<Symbol> sections;
  std::vector<Block> blocks;
};

// Parses a document's text (any line endings).
DocumentOutline outline_of(std::string_view text);

// The sections as DocumentSymbol[] nested by their line ranges, or, for a client without
// hierarchical symbols, as SymbolInformation[] naming each one's parent.
Json document_symbols(const DocumentOutline& outline, const Text& text, PositionEncoding encoding,
                      bool hierarchical, std::string_view uri);
// FoldingRange[]: every section, code block and front matter of more than one line.
Json folding_ranges(const DocumentOutline& outline);

// Answers both requests for open documents. Each version of a document is parsed once, on a
// worker; requests that come while it is parsed wait for it.
class OutlineFeature {
 public:
  explicit OutlineFeature(Session& session);  // the session outlives the feature

 private:
  enum class Answer { symbols, folds };
  struct Waiting {
    Reply reply;
    Answer answer;
  };
  struct Entry {
    std::int64_t version = 0;
    std::shared_ptr<const Text> text;                // the text outlined
    std::shared_ptr<const DocumentOutline> outline;  // none while it is parsed
    std::vector<Waiting> waiting;
  };

  void request(const Json& params, Reply reply, Answer answer);
  void answer(const std::string& uri, const Entry& entry, Waiting waiting) const;

  Session& session_;
  std::unordered_map<std::string, Entry> entries_;  // by URI; main thread only
};

}  // namespace tarnwick::lsp
