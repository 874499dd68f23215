// GitHub renders a repository's Markdown with cmark-gfm, so the same parser decides here what
// is a link and what a heading's text is. cmark-gfm keeps no reference definitions in its tree
// and only resolved URLs in its links, so what was written is read back from the source at the
// positions it gives.
#include "gfm/document.hpp"

#include <cmark-gfm-core-extensions.h>
#include <cmark-gfm.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <utility>

#include "gfm/html.hpp"
#include "gfm/slug.hpp"

namespace tarnwick::gfm {

namespace {

bool is_blank(char c) {
  return c == ' ' || c == '\t';
}

bool is_space(char c) {
  return is_blank(c) || c == '\n' || c == '\r';
}

// The offsets at which the source's lines start; a line ends at "\n", "\r\n" or "\r".
std::vector<std::size_t> line_starts(std::string_view source) {
  std::vector<std::size_t> starts{0};
  if (source.find('\r') == std::string_view::npos) {
    for (std::size_t pos = source.find('\n'); pos != std::string_view::npos;
         pos = source.find('\n', pos + 1)) {
      starts.push_back(pos + 1);
    }
    return starts;
  }
  for (std::size_t pos = 0; pos < source.size(); ++pos) {
    if (source[pos] == '\r' && pos + 1 < source.size() && source[pos + 1] == '\n') ++pos;
    if (source[pos] == '\n' || source[pos] == '\r') starts.push_back(pos + 1);
  }
  return starts;
}

std::size_t line_end(std::string_view source, std::size_t pos) {
  while (pos < source.size() && source[pos] != '\n' && source[pos] != '\r') ++pos;
  return pos;
}

// Where YAML front matter (a first line "---" up to a line "---" or "...") ends: the end of
// its last line; 0 when the source has none.
std::size_t front_matter_end(std::string_view source) {
  const auto is_fence = [&](std::size_t start, std::string_view fence) {
    std::string_view line = source.substr(start, line_end(source, start) - start);
    while (!line.empty() && is_blank(line.back())) line.remove_suffix(1);
    return line == fence;
  };
  if (!is_fence(0, "---")) return 0;
  for (std::size_t start = line_end(source, 0); start < source.size();) {
    start +=
        source[start] == '\r' && start + 1 < source.size() && source[start + 1] == '\n' ? 2 : 1;
    if (start <= source.size() && (is_fence(start, "---") || is_fence(start, "..."))) {
      return line_end(source, start);
    }
    start = line_end(source, start);
  }
  return 0;
}

// The source with its front matter blanked, so that lines and columns stay those of the file.
std::string without_front_matter(std::string_view source) {
  std::string text(source);
  const std::size_t end = front_matter_end(source);
  for (std::size_t pos = 0; pos < end; ++pos) {
    if (text[pos] != '\n' && text[pos] != '\r') text[pos] = ' ';
  }
  return text;
}

bool is_escaped(std::string_view text, std::size_t pos) {
  std::size_t backslashes = 0;
  while (pos > backslashes && text[pos - backslashes - 1] == '\\') ++backslashes;
  return backslashes % 2 == 1;
}

// The destination that starts at `pos` of `text`, as written, moving `pos` past it: "<...>" to
// an unescaped ">" (the brackets not written), or a run without spaces whose parentheses
// balance.
std::string_view destination_at(std::string_view text, std::size_t& pos) {
  if (pos < text.size() && text[pos] == '<') {
    std::size_t close = pos + 1;
    while (close < text.size() && (text[close] != '>' || is_escaped(text, close))) ++close;
    const std::string_view written = text.substr(pos + 1, close - pos - 1);
    pos = close + 1;
    return written;
  }
  const std::size_t start = pos;
  int depth = 0;
  for (; pos < text.size() && !is_space(text[pos]); ++pos) {
    if (text[pos] == '\\') {
      ++pos;
    } else if (text[pos] == '(') {
      ++depth;
    } else if (text[pos] == ')') {
      if (depth == 0) break;
      --depth;
    }
  }
  pos = std::min(pos, text.size());
  return text.substr(start, pos - start);
}

// Moves past the destination and optional title of an inline link, from just after its "(";
// the destination as written is returned through `written`. Returns where ")" should be.
std::size_t skip_destination_and_title(std::string_view link, std::size_t pos,
                                       std::string_view& written) {
  while (pos < link.size() && is_space(link[pos])) ++pos;
  written = destination_at(link, pos);
  while (pos < link.size() && is_space(link[pos])) ++pos;
  if (pos < link.size() && (link[pos] == '"' || link[pos] == '\'' || link[pos] == '(')) {
    const char close = link[pos] == '(' ? ')' : link[pos];
    ++pos;
    while (pos < link.size() && (link[pos] != close || is_escaped(link, pos))) ++pos;
    ++pos;
    while (pos < link.size() && is_space(link[pos])) ++pos;
  }
  return pos;
}

// The destination of an inline link as written: the one after a "](" that runs, with its
// title, to the link's final ")". A link's text may hold images and code spans with "](" of
// their own, so the search starts where the text is known to end, `text_end`.
std::optional<std::string_view> inline_destination(std::string_view link, std::size_t text_end) {
  for (std::size_t at = link.find("](", text_end); at != std::string_view::npos;
       at = link.find("](", at + 1)) {
    std::string_view written;
    if (skip_destination_and_title(link, at + 2, written) == link.size() - 1) return written;
  }
  return std::nullopt;
}

// The label a reference link uses: of "[text][label]" the label, of "[text][]" and "[text]"
// the text.
std::optional<std::string_view> reference_label(std::string_view link) {
  const std::size_t text_start = link.starts_with("!") ? 2 : 1;
  std::size_t open = link.size() - 1;
  while (open > 0) {
    --open;
    if ((link[open] == '[' || link[open] == ']') && !is_escaped(link, open)) break;
  }
  if (link[open] != '[') return std::nullopt;
  const std::string_view content = link.substr(open + 1, link.size() - open - 2);
  if (open + 1 <= text_start) return content;  // [label]
  if (!content.empty()) return content;        // [text][label]
  if (open < text_start + 1 || link[open - 1] != ']') return std::nullopt;
  return link.substr(text_start, open - 1 - text_start);  // [label][]
}

// Skips the markers of block quotes that open a line, and its indentation.
std::size_t skip_quote_markers(std::string_view source, std::size_t pos, std::size_t end) {
  while (pos < end && (is_blank(source[pos]) || source[pos] == '>')) ++pos;
  return pos;
}

// Skips the markers of block quotes and list items that open a line, and its indentation.
std::size_t skip_container_markers(std::string_view source, std::size_t pos, std::size_t end) {
  for (;;) {
    pos = skip_quote_markers(source, pos, end);
    std::size_t marker = pos;
    if (marker < end && (source[marker] == '-' || source[marker] == '+' || source[marker] == '*')) {
      ++marker;
    } else {
      while (marker < end && marker - pos < 9 && source[marker] >= '0' && source[marker] <= '9') {
        ++marker;
      }
      if (marker == pos || marker >= end || (source[marker] != '.' && source[marker] != ')')) {
        return pos;
      }
      ++marker;
    }
    if (marker >= end || !is_blank(source[marker])) return pos;
    pos = marker;
  }
}

// A link reference definition as the source holds it.
struct FoundDefinition {
  std::int64_t line = 0;
  std::int64_t column = 0;
  std::string_view label;    // as written, a view into the source
  std::string_view written;  // the destination as written, a view into the source
  std::size_t end = 0;       // of the destination, after its ">" when it has one
};

// Inclusive ranges of lines that hold no link reference definition: code, HTML, headings,
// tables and the text of paragraphs (a definition cannot interrupt a paragraph).
using Lines = std::vector<std::pair<std::int64_t, std::int64_t>>;

// The link reference definitions of the source's lines from `first_line` to `last_line`, in
// order.
std::vector<FoundDefinition> find_definitions(std::string_view source,
                                              const std::vector<std::size_t>& starts,
                                              const Lines& excluded, std::int64_t first_line,
                                              std::int64_t last_line) {
  std::vector<bool> skipped(starts.size() + 1);
  for (const auto& [first, last] : excluded) {
    for (auto line = std::max<std::int64_t>(first, 1);
         line <= std::min<std::int64_t>(last, static_cast<std::int64_t>(starts.size())); ++line) {
      skipped[static_cast<std::size_t>(line)] = true;
    }
  }
  std::vector<FoundDefinition> definitions;
  for (auto index = static_cast<std::size_t>(first_line - 1);
       index < static_cast<std::size_t>(last_line); ++index) {
    const auto line = static_cast<std::int64_t>(index) + 1;
    if (skipped[index + 1]) continue;
    const std::size_t end = line_end(source, starts[index]);
    const std::size_t open = skip_container_markers(source, starts[index], end);
    if (open >= end || source[open] != '[' || source.substr(open + 1).starts_with("^")) continue;
    std::size_t close = open + 1;
    while (close < end && (source[close] != ']' || is_escaped(source, close)) &&
           (source[close] != '[' || is_escaped(source, close))) {
      ++close;
    }
    if (close + 1 >= end || source[close] != ']' || source[close + 1] != ':') continue;
    std::size_t pos = close + 2;
    while (pos < end && is_blank(source[pos])) ++pos;
    if (pos == end && index + 1 < starts.size()) {
      const std::size_t next_end = line_end(source, starts[index + 1]);
      pos = skip_quote_markers(source, starts[index + 1], next_end);
    }
    const std::string_view written = destination_at(source.substr(0, line_end(source, pos)), pos);
    definitions.push_back({line, static_cast<std::int64_t>(open - starts[index]) + 1,
                           source.substr(open + 1, close - open - 1), written, pos});
  }
  return definitions;
}

// A link known by where it starts; its spans are filled in where they are known.
Link link_at(std::string destination, std::string written, std::int64_t line, std::int64_t column,
             LinkSyntax syntax = LinkSyntax::markdown) {
  Link link;
  link.destination = std::move(destination);
  link.written = std::move(written);
  link.line = line;
  link.column = column;
  link.syntax = syntax;
  return link;
}

// A destination as written with its backslash escapes resolved, for a definition that no link
// uses and so that cmark-gfm never rendered.
std::string unescaped(std::string_view written) {
  std::string text;
  for (std::size_t pos = 0; pos < written.size(); ++pos) {
    if (written[pos] == '\\' && pos + 1 < written.size() &&
        std::ispunct(static_cast<unsigned char>(written[pos + 1]))) {
      ++pos;
    }
    text += written[pos];
  }
  return text;
}

const char* literal(cmark_node* node) {
  const char* text = cmark_node_get_literal(node);
  return text ? text : "";
}

// The text of a heading as a browser shows it: text, code and link text, footnote numbers,
// no image alt, no tags; line breaks become "\n", which the id drops.
void append_rendered_text(cmark_node* node, std::string& text) {
  for (cmark_node* child = cmark_node_first_child(node); child; child = cmark_node_next(child)) {
    switch (cmark_node_get_type(child)) {
      case CMARK_NODE_TEXT:
      case CMARK_NODE_CODE:
      case CMARK_NODE_FOOTNOTE_REFERENCE:  // shown as its number, which is its literal
        text += literal(child);
        break;
      case CMARK_NODE_SOFTBREAK:
      case CMARK_NODE_LINEBREAK:
        text += '\n';
        break;
      case CMARK_NODE_IMAGE:
      case CMARK_NODE_HTML_INLINE:
        break;
      default:
        append_rendered_text(child, text);
    }
  }
}

// The id of a "{#id}" attribute that ends a heading's text, as site generators read it.
std::optional<std::string> custom_id(std::string_view text) {
  while (!text.empty() && is_space(text.back())) text.remove_suffix(1);
  if (!text.ends_with('}')) return std::nullopt;
  const std::size_t open = text.rfind("{#");
  if (open == std::string_view::npos) return std::nullopt;
  // "{#id .class key=value}": the id comes first.
  const std::string_view inside = text.substr(open + 2, text.size() - open - 3);
  const std::string_view id = inside.substr(0, inside.find(' '));
  if (id.empty()) return std::nullopt;
  return std::string(id);
}

cmark_syntax_extension* extension(const char* name) {
  static std::once_flag registered;
  std::call_once(registered, cmark_gfm_core_extensions_ensure_registered);
  return cmark_find_syntax_extension(name);
}

using Node = std::unique_ptr<cmark_node, decltype(&cmark_node_free)>;

// cmark-gfm takes time quadratic in the cells of a table row, so a document with a line of
// more pipes than any real table has is read without the table extension: its cells' links
// are then read as a paragraph's, the same links.
constexpr std::size_t MOST_PIPES_IN_A_ROW = 1000;

bool has_overwide_row(std::string_view text) {
  std::size_t pipes = 0;
  for (const char c : text) {
    if (c == '|') {
      if (++pipes > MOST_PIPES_IN_A_ROW) return true;
    } else if (c == '\n') {
      pipes = 0;
    }
  }
  return false;
}

// cmark-gfm looks for the end of every "<?", "<!" + letter and "<![CDATA[" in a paragraph to
// the paragraph's end, so thousands that never end take quadratic time. One that no "?>",
// ">" or "]]>" follows is text wherever it does not open a line (where it opens an HTML block
// to the end), and stays text with its "<" made U+0001. Only a document with more of them
// than any real one has is touched.
constexpr std::size_t MOST_UNENDED_MARKUP = 64;

bool neutralize_unended_markup(std::string& text) {
  enum class Kind { instruction, section, declaration };
  std::vector<std::pair<std::size_t, Kind>> openers;
  for (std::size_t at = text.find('<'); at != std::string::npos && at + 2 < text.size();
       at = text.find('<', at + 1)) {
    if (text[at + 1] == '?') {
      openers.emplace_back(at, Kind::instruction);
    } else if (text[at + 1] != '!') {
      continue;
    } else if (text.compare(at, 9, "<![CDATA[") == 0) {
      openers.emplace_back(at, Kind::section);
    } else if (std::isalpha(static_cast<unsigned char>(text[at + 2]))) {
      openers.emplace_back(at, Kind::declaration);
    }
  }
  if (openers.size() <= MOST_UNENDED_MARKUP) return false;
  // Each kind of opener can end only before the last of its ends.
  const auto after_last = [&](std::string_view end) {
    const std::size_t last = text.rfind(end);
    return last == std::string::npos ? 0 : last + end.size();
  };
  const std::size_t ends[] = {after_last("?>"), after_last("]]>"), after_last(">")};
  std::erase_if(openers, [&](const auto& opener) {
    return opener.first < ends[static_cast<std::size_t>(opener.second)];
  });
  if (openers.size() <= MOST_UNENDED_MARKUP) return false;
  const std::vector<std::size_t> starts = line_starts(text);
  for (const auto& [at, kind] : openers) {
    const std::size_t line = *std::prev(std::upper_bound(starts.begin(), starts.end(), at));
    if (skip_container_markers(text, line, at) != at && (at == 0 || text[at - 1] != '(')) {
      text[at] = '\x01';
    }
  }
  return true;
}

// GitHub's rendering of a text: its extensions (tables unless a row is too wide for them),
// footnotes on; `wiki` when wiki links are read.
Node parse_as_github(std::string_view text, bool tables, bool wiki) {
  std::unique_ptr<cmark_parser, decltype(&cmark_parser_free)> parser(
      cmark_parser_new(CMARK_OPT_SOURCEPOS | CMARK_OPT_FOOTNOTES), &cmark_parser_free);
  for (const char* name : {"table", "strikethrough", "autolink", "tagfilter", "tasklist"}) {
    if (std::string_view(name) == "table" && !tables) continue;
    // Bare URLs and e-mail addresses become links that leave the repository, which are not
    // read; only wiki links, found across text nodes, see where they split the text.
    if (std::string_view(name) == "autolink" && !wiki) continue;
    if (cmark_syntax_extension* found = extension(name)) {
      cmark_parser_attach_syntax_extension(parser.get(), found);
    }
  }
  cmark_parser_feed(parser.get(), text.data(), text.size());
  return Node(cmark_parser_finish(parser.get()), &cmark_node_free);
}

// Where inline nodes really are. cmark-gfm counts an inline node's line from the start of
// its paragraph by the line ends it has passed, and misses some: the lines of link reference
// definitions the paragraph opened with, and the line end of a hard break written as "\".
// It counts a column from the start of the line's content after the paragraph's indentation,
// though a continuation line may be indented more (or, lazily, less). Both are corrected once
// the paragraph has been read: the definitions' lines by those the inline nodes fall short of
// the paragraph's end, each missed hard break where the node after it stays on the line
// before, and each later line's columns by where the line's content really starts against
// where its first inline node was placed.
struct Placement {
  int first_line = 0;  // its columns are right
  int line_shift = 0;
  std::unordered_map<cmark_node*, int> missed_lines;  // hard breaks before a node
  std::unordered_map<int, int> column_shift;          // by line, before line_shift

  // The line of a node's start or end as cmark-gfm gave it, with the hard breaks it missed.
  int counted(cmark_node* node, int reported) const {
    const auto missed = missed_lines.find(node);
    return reported + (missed == missed_lines.end() ? 0 : missed->second);
  }
  int line(int counted_line) const { return counted_line + line_shift; }
  int column(int counted_line, int column) const {
    const auto shift = column_shift.find(counted_line);
    return column + (shift == column_shift.end() ? 0 : shift->second);
  }
};

// A paragraph being read: what its inline nodes tell of their placement, and the nodes
// whose positions matter, handled when it ends.
struct Paragraph {
  cmark_node* node = nullptr;
  int last_inline_line = 0;  // counted
  int reported_line = 0;     // of the last node placed
  int missed_lines = 0;
  bool line_starts_next = false;
  int hard_breaks = 0;  // since the last node placed
  int line_before_break = 0;
  // Counted line -> the column of its first node, and whether that is a code span, which
  // is placed at its text, after its backticks.
  std::unordered_map<int, std::pair<int, bool>> first_columns;
  std::unordered_map<cmark_node*, int> missed_at;
  std::vector<cmark_node*> placed;
};

// Reads the text, or the lines of a part of it, as GitHub renders it: what stands in the text
// (links, reference links, headings, anchors, definitions, the top-level blocks), before what
// depends on the whole document is worked out (see `finish`).
class Reader {
 public:
  // `source` is the whole text, with its front matter blanked; the part read is its lines from
  // `first_line` to `last_line`. What cmark-gfm is given (`parsed`) is the part, perhaps after
  // `line_offset` lines of definitions that the rest of the document holds (a negative offset),
  // so that its reference links resolve as in the whole text.
  Reader(std::string_view source, const std::vector<std::size_t>& starts, bool wiki, int first_line,
         int last_line, int line_offset)
      : source_(source),
        starts_(starts),
        wiki_(wiki),
        first_line_(first_line),
        last_line_(last_line),
        line_offset_(line_offset) {}

  LinkedDocument read(std::string_view parsed, bool tables) {
    found_.tables = tables;
    const Node document = parse_as_github(parsed, tables, wiki_);
    std::unique_ptr<cmark_iter, decltype(&cmark_iter_free)> iterator(cmark_iter_new(document.get()),
                                                                     &cmark_iter_free);
    for (cmark_event_type event; (event = cmark_iter_next(iterator.get())) != CMARK_EVENT_DONE;) {
      cmark_node* node = cmark_iter_get_node(iterator.get());
      if (event == CMARK_EVENT_ENTER) {
        if (cmark_node_parent(node) == document.get()) {
          count_items();
          found_.blocks.push_back({std::max(start_line(node), 0), cmark_node_get_start_column(node),
                                   end_line(node), cmark_node_get_type(node)});
        }
        enter(node);
      } else if (paragraph_ && node == paragraph_->node) {
        leave_paragraph();
      }
    }
    count_items();
    read_definitions();
    return std::move(found_);
  }

 private:
  // Gives the last block the items found since it began.
  void count_items() {
    if (found_.blocks.empty()) return;
    const std::size_t sizes[] = {
        found_.links.size(),        found_.references.size(),          found_.headings.size(),
        found_.html_anchors.size(), found_.footnote_references.size(), found_.comments.size()};
    Block& block = found_.blocks.back();
    std::size_t* counts[] = {&block.links,        &block.references,          &block.headings,
                             &block.html_anchors, &block.footnote_references, &block.comments};
    for (std::size_t kind = 0; kind < std::size(counts); ++kind) {
      *counts[kind] = sizes[kind] - counted_[kind];
      counted_[kind] = sizes[kind];
    }
  }

  // Lines as the whole text counts them; 0 for a node cmark-gfm gave no place.
  int start_line(cmark_node* node) const {
    const int line = cmark_node_get_start_line(node);
    return line < 1 ? line : line + line_offset_;
  }
  int end_line(cmark_node* node) const {
    // An HTML block's end may come before its start, even at line 0.
    const int line = cmark_node_get_end_line(node);
    return cmark_node_get_start_line(node) < 1 ? line : line + line_offset_;
  }

  void enter(cmark_node* node) {
    const cmark_node_type type = cmark_node_get_type(node);
    if (type == CMARK_NODE_PARAGRAPH) {
      paragraph_.emplace();
      paragraph_->node = node;
      return;
    }
    if (paragraph_) note(*paragraph_, node, type);
    switch (type) {
      case CMARK_NODE_HEADING:
        heading(node);
        break;
      case CMARK_NODE_HTML_BLOCK:
        blocks_without_definitions_.emplace_back(start_line(node), end_line(node));
        html(node, Placement{});
        break;
      case CMARK_NODE_CODE_BLOCK:
        blocks_without_definitions_.emplace_back(start_line(node), end_line(node));
        break;
      case CMARK_NODE_LINK:
      case CMARK_NODE_IMAGE:
      case CMARK_NODE_HTML_INLINE:
      case CMARK_NODE_FOOTNOTE_REFERENCE:
        if (paragraph_) {
          paragraph_->placed.push_back(node);
        } else {
          place(node, Placement{});
        }
        break;
      case CMARK_NODE_TEXT:
        if (wiki_ && !is_text(cmark_node_previous(node))) {
          if (paragraph_) {
            paragraph_->placed.push_back(node);
          } else {
            place(node, Placement{});
          }
        }
        break;
      default:
        // The table extension's node type has no public name.
        if (std::string_view(cmark_node_get_type_string(node)) == "table") {
          blocks_without_definitions_.emplace_back(start_line(node), end_line(node));
        }
        break;
    }
  }

  void note(Paragraph& paragraph, cmark_node* node, cmark_node_type type) const {
    if (type == CMARK_NODE_SOFTBREAK || type == CMARK_NODE_LINEBREAK) {
      if (!paragraph.line_starts_next) paragraph.line_before_break = paragraph.reported_line;
      paragraph.line_starts_next = true;
      if (type == CMARK_NODE_LINEBREAK) ++paragraph.hard_breaks;
      return;
    }
    const int line = start_line(node);
    if (line < 1) return;
    if (paragraph.hard_breaks > 0 && line == paragraph.line_before_break) {
      paragraph.missed_lines += paragraph.hard_breaks;
    }
    paragraph.hard_breaks = 0;
    paragraph.reported_line = line;
    if (paragraph.missed_lines > 0) paragraph.missed_at.emplace(node, paragraph.missed_lines);
    paragraph.last_inline_line =
        std::max(paragraph.last_inline_line, end_line(node) + paragraph.missed_lines);
    if (paragraph.line_starts_next) {
      paragraph.first_columns.try_emplace(
          line + paragraph.missed_lines,
          std::pair(cmark_node_get_start_column(node), type == CMARK_NODE_CODE));
    }
    paragraph.line_starts_next = false;
  }

  void leave_paragraph() {
    Paragraph paragraph = std::move(*paragraph_);
    paragraph_.reset();
    Placement placement;
    placement.first_line = start_line(paragraph.node);
    placement.missed_lines = std::move(paragraph.missed_at);
    if (paragraph.last_inline_line > 0 && opens_with_definition(placement.first_line)) {
      placement.line_shift = std::max(0, end_line(paragraph.node) - paragraph.last_inline_line);
    }
    for (const auto& [line, first] : paragraph.first_columns) {
      const auto [column, is_code] = first;
      if (line == placement.first_line) continue;
      const int real_line = placement.line(line);
      if (real_line < 1 || static_cast<std::size_t>(real_line) > starts_.size()) continue;
      const std::size_t start = starts_[static_cast<std::size_t>(real_line) - 1];
      const std::size_t end = line_end(source_, start);
      std::size_t content = skip_quote_markers(source_, start, end);
      if (is_code) {
        while (content < end && source_[content] == '`') ++content;
      }
      placement.column_shift.emplace(line, static_cast<int>(content - start) + 1 - column);
    }
    blocks_without_definitions_.emplace_back(placement.line(placement.first_line),
                                             end_line(paragraph.node));
    for (cmark_node* node : paragraph.placed) place(node, placement);
  }

  // Whether a line starts like a link reference definition, "[label]:".
  bool opens_with_definition(int line) const {
    if (line < 1 || static_cast<std::size_t>(line) > starts_.size()) return false;
    const std::size_t start = starts_[static_cast<std::size_t>(line) - 1];
    const std::size_t end = line_end(source_, start);
    const std::size_t open = skip_container_markers(source_, start, end);
    if (open >= end || source_[open] != '[') return false;
    const std::size_t close = source_.find("]:", open);
    return close != std::string_view::npos && close < end;
  }

  void place(cmark_node* node, const Placement& placement) {
    switch (cmark_node_get_type(node)) {
      case CMARK_NODE_LINK:
      case CMARK_NODE_IMAGE:
        link(node, placement);
        break;
      case CMARK_NODE_HTML_INLINE:
        html(node, placement);
        break;
      case CMARK_NODE_FOOTNOTE_REFERENCE:
        footnote(node, placement);
        break;
      default:
        wiki_links(node, placement);
    }
  }

  struct Position {
    int line;
    int column;
  };

  Position start_of(cmark_node* node, const Placement& placement) const {
    const int line = placement.counted(node, start_line(node));
    return {placement.line(line), placement.column(line, cmark_node_get_start_column(node))};
  }

  Position end_of(cmark_node* node, const Placement& placement) const {
    const int line = placement.counted(node, end_line(node));
    return {placement.line(line), placement.column(line, cmark_node_get_end_column(node))};
  }

  // A heading's id depends on the headings before it: it is given in `finish`.
  void heading(cmark_node* node) {
    std::string text;
    append_rendered_text(node, text);
    const int first = start_line(node);
    const int last = heading_end_line(first, end_line(node));
    blocks_without_definitions_.emplace_back(first, last);
    found_.headings.push_back({cmark_node_get_heading_level(node), std::move(text), "", first, last,
                               heading_text_span(first, last)});
  }

  // A heading's last line: an ATX heading's own, a setext heading's underline. cmark-gfm may
  // count the line after the underline as the heading's.
  int heading_end_line(int line, int end_line) const {
    if (line < 1 || end_line <= line || static_cast<std::size_t>(end_line) > starts_.size()) {
      return line;
    }
    const std::size_t start = starts_[static_cast<std::size_t>(line) - 1];
    const std::size_t first_end = line_end(source_, start);
    const std::size_t content = skip_container_markers(source_, start, first_end);
    if (content < first_end && source_[content] == '#') return line;
    for (int underline = end_line; underline > line; --underline) {
      if (is_setext_underline(underline)) return underline;
    }
    return end_line;
  }

  bool is_setext_underline(int line) const {
    const std::size_t start = starts_[static_cast<std::size_t>(line) - 1];
    const std::size_t end = line_end(source_, start);
    std::size_t pos = skip_quote_markers(source_, start, end);
    if (pos == end || (source_[pos] != '=' && source_[pos] != '-')) return false;
    const char marker = source_[pos];
    while (pos < end && source_[pos] == marker) ++pos;
    while (pos < end && is_blank(source_[pos])) ++pos;
    return pos == end;
  }

  // Where a heading's text stands: an ATX heading's line without its opening "#"s and its
  // closing sequence, or a setext heading's lines before its underline, `end_line`.
  Span heading_text_span(int line, int end_line) const {
    if (line < 1 || end_line < line || static_cast<std::size_t>(end_line) > starts_.size()) {
      return {};
    }
    const std::size_t start = starts_[static_cast<std::size_t>(line) - 1];
    const std::size_t first_end = line_end(source_, start);
    std::size_t begin = skip_container_markers(source_, start, first_end);
    std::size_t end = first_end;
    if (begin < first_end && source_[begin] == '#') {
      while (begin < first_end && source_[begin] == '#') ++begin;
      while (end > begin && is_blank(source_[end - 1])) --end;
      std::size_t closing = end;
      while (closing > begin && source_[closing - 1] == '#') --closing;
      if (closing == begin || is_blank(source_[closing - 1])) end = closing;
    } else if (end_line > line) {
      end = line_end(source_, starts_[static_cast<std::size_t>(end_line) - 2]);
    }
    while (begin < end && is_blank(source_[begin])) ++begin;
    while (end > begin && is_blank(source_[end - 1])) --end;
    return {begin, end};
  }

  // A footnote's note and its references have ids made of its label ("fn-x"; "fnref-x",
  // "fnref-x-2", ...), which the tree does not keep (a reference's literal is the note's
  // number): it is read from "[^label]".
  void footnote(cmark_node* node, const Placement& placement) {
    const Position start = start_of(node, placement);
    const auto span = source_span(start, end_of(node, placement));
    if (!span || !span->starts_with("[^") || !span->ends_with(']')) return;
    found_.footnote_references.push_back(
        {std::string(span->substr(2, span->size() - 3)), start.line});
  }

  // The offset of a position in the source; none when it falls outside it.
  std::optional<std::size_t> offset_of(Position at) const {
    if (at.line < 1 || static_cast<std::size_t>(at.line) > starts_.size() || at.column < 1) {
      return {};
    }
    const std::size_t offset =
        starts_[static_cast<std::size_t>(at.line) - 1] + static_cast<std::size_t>(at.column) - 1;
    return offset < source_.size() ? std::optional(offset) : std::nullopt;
  }

  // The source between two positions, both inclusive; none when they fall outside it.
  std::optional<std::string_view> source_span(Position from, Position to) const {
    const auto begin = offset_of(from);
    const auto end = offset_of(to);
    if (!begin || !end || *end < *begin) return std::nullopt;
    return source_.substr(*begin, *end - *begin + 1);
  }

  void link(cmark_node* node, const Placement& placement) {
    const std::string destination = cmark_node_get_url(node) ? cmark_node_get_url(node) : "";
    // The autolink extension makes its links of bare URLs and e-mail addresses after parsing,
    // with no position: they all leave the repository.
    if (start_line(node) < 1) return;
    Position start = start_of(node, placement);
    // cmark-gfm gives a link whose text spans lines the line where it ends, with the column
    // where it starts; its text starts on the right line.
    if (cmark_node* text = cmark_node_first_child(node)) {
      const int text_line = placement.counted(text, start_line(text));
      if (start_line(text) > 0 && text_line < placement.counted(node, start_line(node))) {
        start = {placement.line(text_line),
                 placement.column(text_line, cmark_node_get_start_column(node))};
      }
    }
    const auto span = source_span(start, end_of(node, placement));
    const bool internal = !destination.empty() && !is_external(destination);
    if (span && (span->starts_with('[') || span->starts_with("!["))) {
      if (span->ends_with(')')) {
        if (!internal) return;
        if (const auto written =
                inline_destination(*span, text_end(node, start, placement, *span))) {
          found_.links.push_back({destination, std::string(*written), start.line, start.column,
                                  LinkSyntax::markdown, span_of(*span), span_of(*written)});
          return;
        }
      } else if (const auto label = reference_label(*span)) {
        found_.references.push_back({normalize_label(*label), destination, span_of(*label),
                                     span_of(*span), start.line, start.column});
        return;
      }
    }
    if (internal)
      found_.links.push_back(link_at(destination, destination, start.line, start.column));
  }

  // Where a view into the source stands in it.
  Span span_of(std::string_view view) const {
    const auto begin = static_cast<std::size_t>(view.data() - source_.data());
    return {begin, begin + view.size()};
  }

  // Where a link's text ends within its span, as far as its last child tells; 0 when it
  // does not.
  std::size_t text_end(cmark_node* link, Position start, const Placement& placement,
                       std::string_view span) const {
    cmark_node* last = cmark_node_last_child(link);
    if (!last || end_line(last) < 1) return 0;
    const auto text = source_span(start, end_of(last, placement));
    if (!text || text->data() != span.data() || text->size() > span.size()) return 0;
    return text->size();
  }

  // The link reference definitions of the lines read.
  void read_definitions() {
    const int last = std::min<int>(last_line_, static_cast<int>(starts_.size()));
    for (const FoundDefinition& definition :
         find_definitions(source_, starts_, blocks_without_definitions_, first_line_, last)) {
      const std::size_t open = starts_[static_cast<std::size_t>(definition.line) - 1] +
                               static_cast<std::size_t>(definition.column) - 1;
      found_.definitions.push_back({normalize_label(definition.label),
                                    span_of(definition.label),
                                    {open, definition.end},
                                    span_of(definition.written),
                                    definition.line,
                                    definition.column});
    }
  }

  void html(cmark_node* node, const Placement& placement) {
    const std::string_view text = literal(node);
    const Position start = start_of(node, placement);
    for_each_attribute(text, [&](const HtmlAttribute& attribute) {
      if (attribute.name == "id" || attribute.name == "name") {
        if (!attribute.value.empty()) found_.html_anchors.push_back({attribute.value, start.line});
        return;
      }
      if (attribute.name != "href" && attribute.name != "src") return;
      if (attribute.value.empty() || is_external(attribute.value)) return;
      const std::string_view before = text.substr(0, attribute.offset);
      const auto newlines = static_cast<int>(std::count(before.begin(), before.end(), '\n'));
      const std::size_t line_start = before.rfind('\n');
      Link link = link_at(attribute.value, std::string(attribute.written), start.line + newlines,
                          line_start == std::string_view::npos
                              ? start.column + static_cast<std::int64_t>(attribute.offset)
                              : continued_column(start.line + newlines, text.substr(line_start + 1),
                                                 attribute.offset - line_start - 1),
                          LinkSyntax::html);
      // The value follows its name, "=" and perhaps a quote, on the name's line.
      if (const auto name =
              offset_of({static_cast<int>(link.line), static_cast<int>(link.column)})) {
        const std::size_t value = source_.find(attribute.written, *name + attribute.name.size());
        if (value != std::string_view::npos && value < line_end(source_, *name)) {
          link.written_span = {value, value + attribute.written.size()};
          link.span = {*name, link.written_span.end};
        }
      }
      found_.links.push_back(std::move(link));
    });
    comments(text, start.line);
  }

  // The HTML comments of raw HTML that starts at `line`, with the lines they span.
  void comments(std::string_view html, std::int64_t line) {
    std::size_t counted = 0;  // the newlines before it are counted in `line`
    for (std::size_t open = html.find("<!--"); open != std::string_view::npos;) {
      const std::size_t close = html.find("-->", open + 4);
      if (close == std::string_view::npos) return;
      line += std::count(html.begin() + static_cast<std::ptrdiff_t>(counted),
                         html.begin() + static_cast<std::ptrdiff_t>(open), '\n');
      const std::string_view inside = html.substr(open + 4, close - open - 4);
      found_.comments.push_back(
          {std::string(inside), line, line + std::count(inside.begin(), inside.end(), '\n')});
      counted = open;
      open = html.find("<!--", close + 3);
    }
  }

  // The column of `offset` in a later line of raw HTML, whose indentation and container
  // markers the literal may have lost: where the line's text is found in the source line.
  std::int64_t continued_column(std::int64_t line, std::string_view html_line,
                                std::size_t offset) const {
    if (line < 1 || static_cast<std::size_t>(line) > starts_.size()) return 1;
    const std::size_t start = starts_[static_cast<std::size_t>(line) - 1];
    const std::string_view source_line = source_.substr(start, line_end(source_, start) - start);
    std::size_t indent = 0;
    while (indent < offset && is_blank(html_line[indent])) ++indent;
    const std::size_t found = source_line.find(html_line.substr(indent, offset - indent + 1));
    return static_cast<std::int64_t>((found == std::string_view::npos ? indent : found) + offset -
                                     indent) +
           1;
  }

  static bool is_text(cmark_node* node) {
    return node && cmark_node_get_type(node) == CMARK_NODE_TEXT;
  }

  // cmark-gfm splits "[[Page]]" into several text nodes: the run of them is read as one.
  void wiki_links(cmark_node* first, const Placement& placement) {
    std::string run;
    std::vector<std::pair<std::size_t, cmark_node*>> pieces;
    for (cmark_node* node = first; is_text(node); node = cmark_node_next(node)) {
      pieces.emplace_back(run.size(), node);
      run += literal(node);
    }
    for (std::size_t open = run.find("[["); open != std::string::npos;
         open = run.find("[[", open + 2)) {
      const std::size_t close = run.find("]]", open + 2);
      if (close == std::string::npos) return;
      const std::string_view inside = std::string_view(run).substr(open + 2, close - open - 2);
      const std::string_view page = inside.substr(0, inside.find('|'));
      if (page.empty() || page.find('[') != std::string_view::npos || is_external(page)) continue;
      const auto piece =
          std::prev(std::upper_bound(pieces.begin(), pieces.end(), open,
                                     [](std::size_t at, const auto& p) { return at < p.first; }));
      const Position start = start_of(piece->second, placement);
      Link link =
          link_at(std::string(page), std::string(page), start.line,
                  start.column + static_cast<std::int64_t>(open - piece->first), LinkSyntax::wiki);
      // The literal has its escapes resolved: its place is known where the source is the same.
      const std::string_view whole = std::string_view(run).substr(open, close + 2 - open);
      const auto at = offset_of({static_cast<int>(link.line), static_cast<int>(link.column)});
      if (at && source_.substr(*at, whole.size()) == whole) {
        link.span = {*at, *at + whole.size()};
        link.written_span = {*at + 2, *at + 2 + page.size()};
      }
      found_.links.push_back(std::move(link));
      open = close;
    }
  }

  std::string_view source_;
  const std::vector<std::size_t>& starts_;
  bool wiki_;
  int first_line_;
  int last_line_;
  int line_offset_;  // from cmark-gfm's lines to the text's
  LinkedDocument found_;
  std::size_t counted_[6] = {};  // of each kind of item, those given to a block
  std::optional<Paragraph> paragraph_;
  Lines blocks_without_definitions_;
};

// What depends on the whole document: heading ids (repeats numbered), the anchors, the ids
// "{#id}" attributes stand for, and the links of reference links, placed at their definitions.
void finish(LinkedDocument& read, std::string_view source) {
  HeadingIds ids;
  read.anchors.clear();
  read.custom_ids.clear();
  for (Heading& heading : read.headings) {
    heading.id = ids.next(heading.text);
    if (const auto custom = custom_id(heading.text)) {
      read.custom_ids.try_emplace(lowercase(*custom), heading.id);
    }
    if (!heading.id.empty()) read.anchors.insert(heading.id);
  }
  for (const Anchor& anchor : read.html_anchors) read.anchors.insert(anchor.name);
  // A note and its references have ids made of its label: "fn-x"; "fnref-x", "fnref-x-2", ...
  std::unordered_map<std::string, unsigned> seen;
  for (const Anchor& reference : read.footnote_references) {
    const unsigned count = ++seen[reference.name];
    read.anchors.insert("fn-" + reference.name);
    std::string id = "fnref-" + reference.name;
    if (count > 1) id.append("-").append(std::to_string(count));
    read.anchors.insert(std::move(id));
  }

  read.links.resize(read.text_links);
  std::unordered_map<std::string, std::size_t> first_of_label;
  for (std::size_t index = 0; index < read.definitions.size(); ++index) {
    first_of_label.try_emplace(read.definitions[index].label, index);
  }
  const auto definition_link = [&](const Definition& definition, std::string destination,
                                   bool rendered) {
    const Span written = definition.written_span;
    Link link = link_at(std::move(destination),
                        std::string(source.substr(written.begin, written.end - written.begin)),
                        definition.line, definition.column);
    link.span = definition.span;
    link.written_span = written;
    link.rendered = rendered;
    return link;
  };
  std::vector<bool> rendered(read.definitions.size());
  for (const Reference& use : read.references) {
    if (use.destination.empty() || is_external(use.destination)) continue;
    const auto definition = first_of_label.find(use.label);
    if (definition == first_of_label.end()) {
      read.links.push_back(link_at(use.destination, use.destination, use.line, use.column));
    } else if (!rendered[definition->second]) {
      rendered[definition->second] = true;
      read.links.push_back(
          definition_link(read.definitions[definition->second], use.destination, true));
    }
  }
  for (std::size_t index = 0; index < read.definitions.size(); ++index) {
    const Span written = read.definitions[index].written_span;
    std::string destination = unescaped(source.substr(written.begin, written.end - written.begin));
    if (rendered[index] || destination.empty() || is_external(destination)) continue;
    read.links.push_back(definition_link(read.definitions[index], std::move(destination), false));
  }
}

// Whether every top-level block has its place, in order: where the table extension left one
// without, what a change of the text moves cannot be told.
bool blocks_placed(const std::vector<Block>& blocks) {
  return std::all_of(blocks.begin(), blocks.end(), [](const Block& b) { return b.line >= 1; }) &&
         std::is_sorted(blocks.begin(), blocks.end(),
                        [](const Block& a, const Block& b) { return a.line < b.line; });
}

// A whole text, blanked of its front matter, read.
LinkedDocument read_text(std::string text, bool wiki) {
  const bool tables = !has_overwide_row(text);
  neutralize_unended_markup(text);
  const std::vector<std::size_t> starts = line_starts(text);
  LinkedDocument read =
      Reader(text, starts, wiki, 1, static_cast<int>(starts.size()), 0).read(text, tables);
  read.text_links = read.links.size();
  finish(read, text);
  return read;
}

}  // namespace

std::string normalize_label(std::string_view label) {
  std::string collapsed;
  bool space = false;
  for (const char c : label) {
    if (is_space(c)) {
      space = !collapsed.empty();
      continue;
    }
    if (space) collapsed += ' ';
    space = false;
    collapsed += c;
  }
  return case_fold(collapsed);
}

std::vector<std::string> anchor_forms(std::string_view fragment, LinkSyntax syntax) {
  std::vector<std::string> forms{std::string(fragment), lowercase(fragment)};
  if (syntax == LinkSyntax::wiki) forms.push_back(slug(fragment));
  return forms;
}

bool is_external(std::string_view destination) {
  if (destination.starts_with("//")) return true;
  const auto is_letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  if (destination.empty() || !is_letter(destination[0])) return false;
  for (std::size_t pos = 1; pos < destination.size(); ++pos) {
    const char c = destination[pos];
    if (c == ':') return true;
    if (!is_letter(c) && !(c >= '0' && c <= '9') && c != '+' && c != '.' && c != '-') return false;
  }
  return false;
}

LinkedDocument read_links(std::string_view markdown, bool wiki) {
  return read_text(without_front_matter(markdown), wiki);
}

LinkedDocument reread(const LinkedDocument& old, std::string_view old_markdown,
                      std::string_view markdown, bool wiki) {
  // What changed: the bytes between the texts' common start and common end.
  const std::size_t shorter = std::min(old_markdown.size(), markdown.size());
  const std::size_t prefix = static_cast<std::size_t>(
      std::mismatch(old_markdown.begin(),
                    old_markdown.begin() + static_cast<std::ptrdiff_t>(shorter), markdown.begin())
          .first -
      old_markdown.begin());
  std::size_t suffix = 0;
  while (suffix < shorter - prefix &&
         old_markdown[old_markdown.size() - 1 - suffix] == markdown[markdown.size() - 1 - suffix]) {
    ++suffix;
  }
  if (prefix == old_markdown.size() && prefix == markdown.size()) return old;
  std::string text = without_front_matter(markdown);
  // Notes are kept only when referenced, anywhere, and gather at the document's end; what
  // blanking, tables or neutralising decide is decided for the whole text: such texts are
  // read whole.
  const auto whole = [&] { return read_text(std::move(text), wiki); };
  const auto has_notes = [](std::string_view markdown) {
    return markdown.find("[^") != std::string_view::npos;
  };
  if (old.blocks.empty() || !blocks_placed(old.blocks) || has_notes(old_markdown) ||
      has_notes(markdown) || has_overwide_row(text) == old.tables ||
      neutralize_unended_markup(text)) {
    return whole();
  }
  // What changed, in the old text. An edit of the front matter changes what is blanked: all of
  // it, old and new, counts as changed.
  std::size_t changed_begin = prefix;
  std::size_t changed_end = old_markdown.size() - suffix;
  const std::size_t old_front = front_matter_end(old_markdown);
  const std::size_t front = front_matter_end(markdown);
  if (prefix < std::max(old_front, front)) {
    changed_begin = 0;
    changed_end = std::max(changed_end, old_front);
    if (front > markdown.size() - suffix) {
      changed_end = std::max(changed_end, front + old_markdown.size() - markdown.size());
    }
  }
  const std::vector<std::size_t> old_starts = line_starts(old_markdown);
  const std::vector<std::size_t> starts = line_starts(text);
  const auto line_of = [](const std::vector<std::size_t>& in, std::size_t offset) {
    return static_cast<std::int64_t>(std::upper_bound(in.begin(), in.end(), offset) - in.begin());
  };
  const std::int64_t first_changed = line_of(old_starts, changed_begin);
  const std::int64_t last_changed = line_of(old_starts, changed_end);

  // The part read again runs from a block before the change to the block after it (the
  // sentinel), which must read as it did: parsing after it then goes as before. Without a block
  // after the sentinel, it runs to the end.
  const std::vector<Block>& blocks = old.blocks;
  // A block runs to the next one's start (cmark-gfm may end one before its start).
  const auto first = static_cast<std::size_t>(
      std::upper_bound(blocks.begin() + 1, blocks.end(), first_changed,
                       [](std::int64_t line, const Block& block) { return line < block.line; }) -
      blocks.begin() - 1);
  const std::size_t start = first == 0 ? 0 : first - 1;
  const auto sentinel = static_cast<std::size_t>(
      std::upper_bound(blocks.begin(), blocks.end(), last_changed,
                       [](std::int64_t line, const Block& block) { return line < block.line; }) -
      blocks.begin());
  const bool to_end = sentinel + 1 >= blocks.size();
  const std::int64_t first_line = start == 0 ? 1 : blocks[start].line;
  const std::size_t begin = old_starts[static_cast<std::size_t>(first_line) - 1];
  const std::size_t old_end =
      to_end ? old_markdown.size()
             : old_starts[static_cast<std::size_t>(blocks[sentinel + 1].line) - 1];
  const std::size_t end = old_end + markdown.size() - old_markdown.size();
  const std::int64_t old_last_line =
      to_end ? static_cast<std::int64_t>(old_starts.size()) : blocks[sentinel + 1].line - 1;
  const std::int64_t shift =
      static_cast<std::int64_t>(starts.size()) - static_cast<std::int64_t>(old_starts.size());
  const std::int64_t last_line = old_last_line + shift;

  // Definitions resolve reference links anywhere: one in the part is read whole; those outside
  // it are given before it, in lines of their own. A line that only looks like one, where
  // GitHub's parser might yet take it for one, is read whole too.
  const auto looks_like_definitions = [](std::string_view source,
                                         const std::vector<std::size_t>& lines) {
    return find_definitions(source, lines, {}, 1, static_cast<std::int64_t>(lines.size())).size();
  };
  if (looks_like_definitions(text, starts) != old.definitions.size() ||
      looks_like_definitions(old_markdown, old_starts) != old.definitions.size()) {
    return whole();
  }
  std::string parsed;
  int definition_lines = 0;
  for (const Definition& definition : old.definitions) {
    if (definition.span.end > begin && definition.span.begin < old_end) return whole();
    const Span label = definition.label_span;
    const Span written = definition.written_span;
    const std::string_view label_text = old_markdown.substr(label.begin, label.end - label.begin);
    if (label_text.find_first_of("\r\n") != std::string_view::npos) return whole();
    const bool bracketed = written.begin > 0 && old_markdown[written.begin - 1] == '<';
    parsed.append("[").append(label_text).append("]: ").append(bracketed ? "<" : "");
    parsed.append(old_markdown.substr(written.begin, written.end - written.begin));
    parsed.append(bracketed ? ">\n" : "\n");
    ++definition_lines;
  }
  if (definition_lines > 0) {
    parsed += '\n';
    ++definition_lines;
  }
  parsed.append(text, begin, end - begin);
  LinkedDocument part =
      Reader(text, starts, wiki, static_cast<int>(first_line), static_cast<int>(last_line),
             static_cast<int>(first_line) - 1 - definition_lines)
          .read(parsed, old.tables);
  const auto sentinel_read = [&] {
    const Block& before = blocks[sentinel];
    if (part.blocks.empty()) return false;
    Block moved = before;
    moved.line += shift;
    moved.end_line += shift;
    return part.blocks.back() == moved;
  };
  if (!part.definitions.empty() || !blocks_placed(part.blocks) ||
      (!part.blocks.empty() && part.blocks.front().line < first_line) ||
      (!to_end && !sentinel_read())) {
    return whole();
  }

  // The reading: what stands before the part as it was, the part, what stands after it moved.
  const auto bytes = static_cast<std::ptrdiff_t>(markdown.size()) -
                     static_cast<std::ptrdiff_t>(old_markdown.size());
  // A span not known stays one; an empty one that is known moves.
  const auto moved = [&](Span span) {
    return span == Span{}
               ? span
               : Span{static_cast<std::size_t>(static_cast<std::ptrdiff_t>(span.begin) + bytes),
                      static_cast<std::size_t>(static_cast<std::ptrdiff_t>(span.end) + bytes)};
  };
  const auto moved_line = [&](std::int64_t line) { return line < 1 ? line : line + shift; };
  // The items of the blocks before the part, the part's, and those of the blocks after it, moved.
  const std::size_t end_block = to_end ? blocks.size() : sentinel + 1;
  const auto merge = [&](const auto& items, const auto& inside, std::size_t Block::*count,
                         auto move) {
    std::size_t before = 0, replaced = 0;
    for (std::size_t index = 0; index < end_block; ++index) {
      (index < start ? before : replaced) += blocks[index].*count;
    }
    std::decay_t<decltype(inside)> merged(items.begin(),
                                          items.begin() + static_cast<std::ptrdiff_t>(before));
    merged.insert(merged.end(), inside.begin(), inside.end());
    for (std::size_t index = before + replaced; index < items.size(); ++index) {
      merged.push_back(move(items[index]));
    }
    return merged;
  };
  LinkedDocument read;
  read.tables = old.tables;
  const std::vector<Link> old_text_links(
      old.links.begin(), old.links.begin() + static_cast<std::ptrdiff_t>(old.text_links));
  read.links = merge(old_text_links, part.links, &Block::links, [&](Link l) {
    l.line = moved_line(l.line);
    l.span = moved(l.span);
    l.written_span = moved(l.written_span);
    return l;
  });
  read.text_links = read.links.size();
  read.references = merge(old.references, part.references, &Block::references, [&](Reference r) {
    r.line = moved_line(r.line);
    r.span = moved(r.span);
    r.label_span = moved(r.label_span);
    return r;
  });
  read.headings = merge(old.headings, part.headings, &Block::headings, [&](Heading h) {
    h.line = moved_line(h.line);
    h.end_line = moved_line(h.end_line);
    h.text_span = moved(h.text_span);
    return h;
  });
  const auto move_anchor = [&](Anchor a) {
    a.line = moved_line(a.line);
    return a;
  };
  read.html_anchors = merge(old.html_anchors, part.html_anchors, &Block::html_anchors, move_anchor);
  read.footnote_references = merge(old.footnote_references, part.footnote_references,
                                   &Block::footnote_references, move_anchor);
  read.comments = merge(old.comments, part.comments, &Block::comments, [&](Comment c) {
    c.line = moved_line(c.line);
    c.end_line = moved_line(c.end_line);
    return c;
  });
  // Definitions stand outside the part, where the text holds them.
  for (const Definition& definition : old.definitions) {
    Definition& kept = read.definitions.emplace_back(definition);
    if (definition.line < first_line) continue;
    kept.line += shift;
    kept.span = moved(kept.span);
    kept.label_span = moved(kept.label_span);
    kept.written_span = moved(kept.written_span);
  }
  read.blocks.assign(blocks.begin(), blocks.begin() + static_cast<std::ptrdiff_t>(start));
  read.blocks.insert(read.blocks.end(), part.blocks.begin(), part.blocks.end());
  for (std::size_t index = end_block; index < blocks.size(); ++index) {
    Block block = blocks[index];
    block.line = moved_line(block.line);
    block.end_line = moved_line(block.end_line);
    read.blocks.push_back(block);
  }
  finish(read, text);
  return read;
}

}  // namespace tarnwick::gfm
