#include "engines/markdown/links.hpp"

#include <algorithm>
#include <iterator>
#include <set>
#include <tuple>
#include <unordered_map>

#include "engines/markdown/regex.hpp"
#include "text/utf8.hpp"
#include "text/white_space.hpp"

using namespace tarnwick::text;

namespace tarnwick::engines::markdown {

using references::REF_DOC_LINK;
using references::REF_WIKI_LINK;
using references::ReferenceInfo;
using references::RefKind;

namespace detail {

namespace {

constinit const Regex EXTERNAL{R"re(^(?:[A-Za-z][A-Za-z0-9+.-]*:|//))re"};
// [text](destination "title"): the text, the destination (group 1), then an optional title.
constinit const Regex INLINE_LINK{R"re((?<![\\!])\[(?:[^\[\]\\]|\\.|\[[^\[\]]*\])*\])re"
                                  R"re(\(\s*(<[^<>\n]*>|[^\s()<>]*(?:\([^\s()]*\)[^\s()<>]*)*))re"
                                  R"re((?:\s+(?:"[^"]*"|'[^']*'|\([^()]*\)))?\s*\))re"};
// [[page#anchor|label]]: the page is group 1, the anchor group 2.
constinit const Regex WIKI_LINK{
    R"re((?<!!)\[\[([^\[\]|#\n]*)(?:#([^\[\]|\n]*))?(?:\|[^\[\]\n]*)?\]\])re"};

// A maximal run of backticks.
struct Run {
  std::size_t begin;
  std::size_t length;
};

std::vector<Run> backtick_runs(std::string_view text) {
  std::vector<Run> runs;
  for (std::size_t pos = text.find('`'); pos != std::string_view::npos; pos = text.find('`', pos)) {
    const std::size_t end = std::min(text.find_first_not_of('`', pos), text.size());
    runs.push_back({pos, end - pos});
    pos = end;
  }
  return runs;
}

// For each run, the position of the next run of the same length; runs.size() when none.
std::vector<std::size_t> next_of_same_length(const std::vector<Run>& runs) {
  std::vector<std::size_t> next(runs.size());
  std::unordered_map<std::size_t, std::size_t> later;
  for (std::size_t i = runs.size(); i-- > 0;) {
    const auto found = later.find(runs[i].length);
    next[i] = found == later.end() ? runs.size() : found->second;
    later[runs[i].length] = i;
  }
  return next;
}

// The text with every code span blanked byte by byte, so that positions stay the same.
std::string masked(std::string_view markdown) {
  std::string out(markdown);
  for (const auto [begin, end] : code_spans(markdown)) {
    std::fill(out.begin() + begin, out.begin() + end, ' ');
  }
  return out;
}

bool is_continuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// A group of a match in the masked text, with one space for each blanked character rather than
// for each of its bytes: outside code spans the masked text is the original, and a space is
// never a continuation byte there.
std::string group_text(std::string_view markdown, std::string_view masked, const Match& match,
                       int group) {
  const std::string_view written = match.group(masked, group);
  const auto offset = static_cast<std::size_t>(written.data() - masked.data());
  std::string out;
  for (std::size_t i = 0; i < written.size(); ++i) {
    if (written[i] != ' ' || !is_continuation(markdown[offset + i])) out += written[i];
  }
  return out;
}

// A pattern match in the masked text: where it starts, and its target if it leads anywhere.
struct Found {
  std::size_t start;
  RefKind kind;
  std::optional<std::string> target;
};

std::vector<Found> inline_links(std::string_view markdown, std::string_view masked) {
  std::vector<Found> found;
  std::size_t at = 0;
  while (const auto match = INLINE_LINK.search(masked, at)) {
    found.push_back(
        {match->start(), REF_DOC_LINK, destination(group_text(markdown, masked, *match, 1))});
    at = match->end();
  }
  return found;
}

std::vector<Found> wiki_links(std::string_view markdown, std::string_view masked) {
  std::vector<Found> found;
  std::size_t at = 0;
  while (const auto match = WIKI_LINK.search(masked, at)) {
    std::optional<std::string> anchor;
    if (match->has(2)) anchor = group_text(markdown, masked, *match, 2);
    found.push_back({match->start(), REF_WIKI_LINK,
                     wiki_target(group_text(markdown, masked, *match, 1), anchor)});
    at = match->end();
  }
  return found;
}

// Whether inline Markdown has what every inline or wiki link has.
bool may_hold_link(std::string_view markdown) {
  return markdown.find("](") != std::string_view::npos ||
         markdown.find("[[") != std::string_view::npos;
}

// How many link marks a document holds before a position: the "[[" of a wiki link, and any "]",
// which closes the text of every inline link (its "](") and the label of every reference
// definition (whatever the grammar lets stand between the label and its ":"). A node whose
// bytes hold none holds no link, so the link walk skips it. The counts are kept for every
// STRIDE-th position and counted on from there: constant time per node however deep it nests,
// and memory an eighth of the document's.
class LinkMarks {
 public:
  explicit LinkMarks(std::string_view source) : source_(source) {
    std::size_t count = 0;
    for (std::size_t block = 0; block <= source.size(); block += STRIDE) {
      sampled_.push_back(count);
      count += between(block, block + STRIDE);
    }
  }

  // Whether a node's bytes, a view into the document, hold a whole mark.
  bool any_in(std::string_view bytes) const {
    if (bytes.size() < 2) return false;
    const auto begin = static_cast<std::size_t>(bytes.data() - source_.data());
    return before(begin + bytes.size() - 1) > before(begin);
  }

 private:
  static constexpr std::size_t STRIDE = 64;

  // The marks that start in [from, to).
  std::size_t between(std::size_t from, std::size_t to) const {
    const auto* text = reinterpret_cast<const unsigned char*>(source_.data());
    // A mark needs the byte after it.
    to = std::min(to, source_.empty() ? 0 : source_.size() - 1);
    std::size_t count = 0;
    for (std::size_t at = from; at < to; ++at) {
      const unsigned char first = text[at], second = text[at + 1];
      count += (first == '[') & (second == '[');
      count += first == ']';
    }
    return count;
  }

  std::size_t before(std::size_t pos) const {
    const std::size_t block = pos / STRIDE;
    return sampled_[block] + between(block * STRIDE, pos);
  }

  std::string_view source_;
  std::vector<std::size_t> sampled_;
};

std::optional<std::string> definition_target(Node definition) {
  const auto written = first_child(definition, DESTINATION_NODE);
  if (!written) return std::nullopt;
  return destination(text(*written));
}

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The bytes that a run of ASCII characters stands for: %XX is one byte, anything else itself.
std::string percent_bytes(std::string_view run) {
  std::string bytes;
  for (std::size_t i = 0; i < run.size(); ++i) {
    if (run[i] == '%' && i + 2 < run.size()) {
      const int high = hex_value(run[i + 1]), low = hex_value(run[i + 2]);
      if (high >= 0 && low >= 0) {
        bytes += static_cast<char>(high * 16 + low);
        i += 2;
        continue;
      }
    }
    bytes += run[i];
  }
  return bytes;
}

bool is_ascii(char byte) {
  return static_cast<unsigned char>(byte) < 0x80;
}

// The path part of a target, before its first "?", decoded and stripped.
std::string reference_name(std::string_view path) {
  return std::string(strip(unquote(path.substr(0, path.find('?')))));
}

std::optional<std::string> reference_qualifier(std::string_view anchor) {
  const std::string decoded = unquote(anchor);
  const std::string_view stripped = strip(decoded);
  if (stripped.empty()) return std::nullopt;
  return std::string(stripped);
}

}  // namespace

std::optional<std::string> destination(std::string_view written) {
  std::string_view target = strip(written);
  if (target.starts_with('<') && target.ends_with('>')) {
    target = strip(target.substr(1, target.size() - 2));
  }
  if (target.empty() || EXTERNAL.search(target)) return std::nullopt;
  return std::string(target);
}

std::optional<std::string> wiki_target(std::string_view page,
                                       std::optional<std::string_view> anchor) {
  const std::string_view name = strip(page);
  const std::string_view section = anchor ? strip(*anchor) : std::string_view{};
  if (name.empty() && section.empty()) return std::nullopt;
  if (section.empty()) return std::string(name);
  return std::string(name) + "#" + std::string(section);
}

// The code span pattern retries every unclosed backtick run against the rest of the text,
// which grows faster than the text on runs of rising lengths. Its matches are the same as
// pairing each run not preceded by a backslash with the next run of equal length.
std::vector<ByteRange> code_spans(std::string_view markdown) {
  const std::vector<Run> runs = backtick_runs(markdown);
  const std::vector<std::size_t> next = next_of_same_length(runs);
  std::vector<ByteRange> spans;
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const bool escaped = runs[i].begin > 0 && markdown[runs[i].begin - 1] == '\\';
    if (escaped || next[i] == runs.size()) continue;
    const Run& closing = runs[next[i]];
    spans.push_back({runs[i].begin, closing.begin + closing.length});
    i = next[i];
  }
  return spans;
}

std::vector<LinkTarget> inline_targets(std::string_view markdown, std::int64_t first_line) {
  if (!may_hold_link(markdown)) return {};
  const std::string blanked = masked(markdown);
  std::vector<Found> inline_found = inline_links(markdown, blanked);
  std::vector<Found> wiki_found = wiki_links(markdown, blanked);
  std::vector<Found> found;
  found.reserve(inline_found.size() + wiki_found.size());
  // std::merge is stable: on equal starts the inline link comes first.
  std::merge(
      std::make_move_iterator(inline_found.begin()), std::make_move_iterator(inline_found.end()),
      std::make_move_iterator(wiki_found.begin()), std::make_move_iterator(wiki_found.end()),
      std::back_inserter(found), [](const Found& a, const Found& b) { return a.start < b.start; });

  std::vector<LinkTarget> targets;
  std::int64_t line = first_line;
  std::size_t counted = 0;
  for (Found& link : found) {
    line += std::count(markdown.begin() + counted, markdown.begin() + link.start, '\n');
    counted = link.start;
    if (link.target) targets.push_back({link.kind, std::move(*link.target), line});
  }
  return targets;
}

std::vector<LinkTarget> link_targets(Node root, Subtrees subtrees) {
  std::vector<LinkTarget> targets;
  const LinkMarks marks(subtrees == Subtrees::SKIP_LINK_FREE ? root.source : std::string_view{});
  walk(root, [&](Node node) {
    if (subtrees == Subtrees::SKIP_LINK_FREE && !marks.any_in(bytes(node))) return false;
    const std::string_view kind = type(node);
    const std::int64_t line = std::int64_t{start_row(node)} + 1;
    if (INLINE_NODES.contains(kind)) {
      std::vector<LinkTarget> found = inline_targets(text(node), line);
      targets.insert(targets.end(), std::make_move_iterator(found.begin()),
                     std::make_move_iterator(found.end()));
      return false;
    }
    if (kind == REFERENCE_DEFINITION) {
      if (auto target = definition_target(node)) {
        targets.push_back({REF_DOC_LINK, std::move(*target), line});
      }
      return false;
    }
    return LINK_CONTAINERS.contains(kind);
  });
  return targets;
}

std::string unquote(std::string_view text) {
  if (text.find('%') == std::string_view::npos) return std::string(text);
  std::string out;
  auto pos = text.begin();
  while (pos != text.end()) {
    const auto run_end = std::find_if_not(pos, text.end(), is_ascii);
    out += decode_utf8(percent_bytes({pos, run_end}));
    pos = std::find_if(run_end, text.end(), is_ascii);
    out.append(run_end, pos);
  }
  return out;
}

SectionIndex section_index(std::span<const Symbol> sections) {
  SectionIndex index{sections, {}, {}};
  std::vector<std::int64_t> ends;
  for (const Symbol& section : sections) {
    const std::int64_t highest = index.start_maxima.empty()
                                     ? section.start_line
                                     : std::max(index.start_maxima.back(), section.start_line);
    index.start_maxima.push_back(highest);
    ends.push_back(section.end_line);
  }
  index.end_maxima.push_back(std::move(ends));
  for (std::size_t width = 1; 2 * width <= sections.size(); width *= 2) {
    const std::vector<std::int64_t>& below = index.end_maxima.back();
    std::vector<std::int64_t> level(below.size() - width);
    for (std::size_t i = 0; i < level.size(); ++i) level[i] = std::max(below[i], below[i + width]);
    index.end_maxima.push_back(std::move(level));
  }
  return index;
}

std::optional<std::string> section_at(const SectionIndex& index, std::int64_t line) {
  const auto& starts = index.start_maxima;
  const auto cut = static_cast<std::size_t>(std::upper_bound(starts.begin(), starts.end(), line) -
                                            starts.begin());
  // The longest run of sections right before the cut that all end above the line, found by
  // halving widths over the table of end_line maxima.
  std::size_t skipped = 0;
  for (std::size_t k = index.end_maxima.size(); k-- > 0;) {
    const std::size_t width = std::size_t{1} << k;
    if (skipped + width <= cut && index.end_maxima[k][cut - skipped - width] < line) {
      skipped += width;
    }
  }
  if (skipped == cut) return std::nullopt;
  return index.sections[cut - skipped - 1].fqn;
}

}  // namespace detail

std::vector<ReferenceInfo> extract_links(Node root, std::span<const Symbol> sections) {
  using namespace detail;
  const SectionIndex index = section_index(sections);
  std::vector<ReferenceInfo> found;
  std::set<std::tuple<RefKind, std::string, std::optional<std::string>, std::int64_t>> seen;
  for (const auto& [kind, target, line] : link_targets(root)) {
    const std::string_view written = target;
    const std::size_t anchor_at = std::min(written.find('#'), written.size());
    std::string name = reference_name(written.substr(0, anchor_at));
    std::optional<std::string> qualifier;
    if (anchor_at < written.size()) qualifier = reference_qualifier(written.substr(anchor_at + 1));
    if (name.empty() && !qualifier) continue;
    if (!seen.emplace(kind, name, qualifier, line).second) continue;
    found.push_back(ReferenceInfo{.name = std::move(name),
                                  .qualifier = std::move(qualifier),
                                  .kind = kind,
                                  .line = line,
                                  .source_fqn = section_at(index, line)});
  }
  return found;
}

}  // namespace tarnwick::engines::markdown
