#include "engines/markdown/outline.hpp"

#include <algorithm>

#include "engines/markdown/inline_text.hpp"
#include "engines/markdown/node.hpp"
#include "tarnwick/rules.hpp"
#include "text/utf8.hpp"
#include "text/white_space.hpp"

using namespace tarnwick::text;

namespace tarnwick::engines::markdown {

namespace detail {

constinit const Regex CLOSING_SEQUENCE{R"re((?:^|[ \t]+)#+[ \t]*$)re"};

namespace {

int level_of(std::span<const Node> parts) {
  for (const Node part : parts) {
    for (const auto& [marker, level] : LEVEL_MARKERS) {
      if (type(part) == marker) return level;
    }
  }
  return 1;
}

std::string heading_text(Node node, std::span<const Node> parts) {
  const bool atx = type(node) == ATX_HEADING;
  const std::string_view holder = atx ? "inline" : "paragraph";
  const auto found =
      std::find_if(parts.begin(), parts.end(), [&](Node part) { return type(part) == holder; });
  if (found == parts.end()) return {};
  std::string written = text(*found);
  if (!atx || written.find('#') == std::string::npos) return written;
  return replace_all(CLOSING_SEQUENCE, written, -1);
}

// As much of a block's text as its plain text can show: MAX_INLINE_LENGTH code points, each
// decoded from at most four bytes.
std::string leading_text(Node block) {
  return decode_utf8(bytes(block).substr(0, 4 * MAX_INLINE_LENGTH));
}

std::vector<std::string_view> split_lines(std::string_view source) {
  std::vector<std::string_view> lines;
  std::size_t start = 0;
  for (std::size_t end; (end = source.find('\n', start)) != std::string_view::npos;
       start = end + 1) {
    lines.push_back(source.substr(start, end - start));
  }
  lines.push_back(source.substr(start));
  return lines;
}

bool is_front_matter(Node block) {
  const auto kind = type(block);
  return kind == YAML_FRONT_MATTER || kind == TOML_FRONT_MATTER;
}

// A named section that holds the current position.
struct Holder {
  int level;
  std::string fqn;
  std::vector<std::string> path;
};

}  // namespace

Heading heading(Node node, std::optional<Node> following) {
  const std::vector<Node> parts = children(node);
  return Heading{plain_text(heading_text(node, parts)), level_of(parts), start_row(node),
                 summary(following)};
}

std::optional<std::string> summary(std::optional<Node> block) {
  if (!block || type(*block) != "paragraph") return std::nullopt;
  std::string plain = plain_text(leading_text(*block));
  if (plain.empty()) return std::nullopt;
  return plain;
}

std::int64_t last_text_row(std::span<const std::string_view> lines, std::int64_t floor,
                           std::int64_t row) {
  const auto known = static_cast<std::int64_t>(lines.size());
  while (row > floor && (row >= known || is_blank(lines[row]))) --row;
  return row;
}

std::vector<std::int64_t> section_ends(std::span<const Heading> headings,
                                       std::span<const std::string_view> lines) {
  std::vector<std::int64_t> ends(headings.size(), 0);
  std::vector<std::size_t> open_sections;
  const auto close = [&](std::size_t index, std::int64_t row) {
    ends[index] = last_text_row(lines, headings[index].first_row, row);
  };
  for (std::size_t i = 0; i < headings.size(); ++i) {
    while (!open_sections.empty() && headings[open_sections.back()].level >= headings[i].level) {
      close(open_sections.back(), headings[i].first_row - 1);
      open_sections.pop_back();
    }
    open_sections.push_back(i);
  }
  const auto last_row = static_cast<std::int64_t>(lines.size()) - 1;
  for (const std::size_t index : open_sections) close(index, last_row);
  return ends;
}

std::string heading_path(std::span<const std::string> names) {
  const std::size_t separator = code_point_count(PATH_SEPARATOR);
  const std::size_t marker = code_point_count(ELLIPSIS) + separator;
  std::size_t length = separator * (names.size() - 1);
  for (const auto& name : names) length += code_point_count(name);
  for (std::size_t start = 0; start < names.size(); ++start) {
    if (length + (start > 0 ? marker : 0) <= MAX_PATH_LENGTH) {
      std::string path = start > 0 ? std::string(ELLIPSIS) : "";
      for (std::size_t i = start; i < names.size(); ++i) {
        if (!path.empty()) path += PATH_SEPARATOR;
        path += names[i];
      }
      return path;
    }
    length -= code_point_count(names[start]) + (start + 1 < names.size() ? separator : 0);
  }
  const auto kept = MAX_PATH_LENGTH - code_point_count(ELLIPSIS);
  return std::string(first_code_points(names.back(), kept)) + std::string(ELLIPSIS);
}

std::vector<Heading> with_front_matter(std::vector<Heading> headings, const FrontMatter& front,
                                       std::optional<Node> following) {
  const auto first_h1 =
      std::find_if(headings.begin(), headings.end(), [](const Heading& h) { return h.level == 1; });
  if (first_h1 != headings.end()) {
    if (front.description && !front.description->empty()) first_h1->summary = front.description;
    return headings;
  }
  if (!front.title || front.title->empty()) return headings;
  Heading title{*front.title, 1, 0, front.description ? front.description : summary(following)};
  headings.insert(headings.begin(), std::move(title));
  return headings;
}

}  // namespace detail

std::vector<Symbol> extract_sections(Node root, std::string_view source, std::string_view prefix,
                                     std::int64_t file_id, const IndexerRules& rules) {
  using namespace detail;
  const std::vector<Node> blocks = detail::blocks(root);
  std::vector<Heading> headings;
  for (std::size_t index = 0; index < blocks.size(); ++index) {
    const auto kind = type(blocks[index]);
    if (kind == ATX_HEADING || kind == SETEXT_HEADING) {
      headings.push_back(heading(blocks[index], block_after(blocks, index)));
    }
  }
  if (!blocks.empty() && is_front_matter(blocks[0])) {
    const FrontMatter front = front_matter(blocks[0], prefix, Logger(rules));
    headings = with_front_matter(std::move(headings), front, block_after(blocks, 0));
  }
  const std::vector<std::string_view> lines = split_lines(source);
  const std::vector<std::int64_t> ends = section_ends(headings, lines);

  // The rules the indexer left empty are its defaults.
  UniqueFqns default_unique_fqn;
  const auto unique_fqn = [&](const std::string& candidate) {
    return rules.unique_fqn ? rules.unique_fqn(candidate) : default_unique_fqn(candidate);
  };
  const auto shortened_docstring = [&](const std::string& text) {
    return rules.cap_docstring ? rules.cap_docstring(text) : cap_docstring(text);
  };

  std::vector<Symbol> symbols;
  std::vector<Holder> holders;
  for (std::size_t i = 0; i < headings.size(); ++i) {
    const Heading& h = headings[i];
    while (!holders.empty() && holders.back().level >= h.level) holders.pop_back();
    if (h.name.empty()) continue;
    const std::string parent_fqn = holders.empty() ? std::string(prefix) : holders.back().fqn;
    std::vector<std::string> path =
        holders.empty() ? std::vector<std::string>{} : holders.back().path;
    path.push_back(h.name);
    std::string fqn = unique_fqn(parent_fqn + "." + h.name);
    std::string signature = heading_path(path);
    std::optional<std::string> docstring;
    if (h.summary && !h.summary->empty()) docstring = shortened_docstring(*h.summary);
    holders.push_back({h.level, fqn, std::move(path)});
    symbols.push_back(Symbol{.id = std::nullopt,
                             .file_id = file_id,
                             .name = h.name,
                             .kind = "section",
                             .fqn = std::move(fqn),
                             .start_line = h.first_row + 1,
                             .end_line = ends[i] + 1,
                             .signature = std::move(signature),
                             .is_export = true,
                             .docstring = std::move(docstring)});
  }
  return symbols;
}

}  // namespace tarnwick::engines::markdown
