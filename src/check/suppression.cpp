#include "check/suppression.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "text/nearest.hpp"

namespace tarnwick::check {

namespace {

constexpr std::string_view PREFIX = "tarnwick-md-";
const std::array<std::string, 4> KINDS = {"tarnwick-md-ignore-next-line",
                                          "tarnwick-md-ignore-start", "tarnwick-md-ignore-end",
                                          "tarnwick-md-ignore-file"};
enum Kind { next_line, start, end, file };

// A suppression comment, and what it silences.
struct Suppression {
  const gfm::Comment* comment;
  std::string written;  // the comment's words, as the target of its problem
  std::int64_t first_line = 0, last_line = 0;
  std::vector<Code> codes;  // none: every code
  bool inert = false;       // it names codes, all misspelt: it silences nothing, and says so
  bool used = false;
};

std::vector<std::string_view> words_of(std::string_view text) {
  std::vector<std::string_view> words;
  const auto separator = [](char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == ',';
  };
  for (std::size_t at = 0; at < text.size();) {
    while (at < text.size() && separator(text[at])) ++at;
    const std::size_t from = at;
    while (at < text.size() && !separator(text[at])) ++at;
    if (at > from) words.push_back(text.substr(from, at - from));
  }
  return words;
}

std::string joined(const std::vector<std::string_view>& words) {
  std::string text;
  for (const std::string_view word : words) text.append(text.empty() ? "" : " ").append(word);
  return text;
}

Problem suppression_problem(const std::string& path, const gfm::Comment& comment,
                            std::string written, std::string message,
                            std::optional<std::string> suggestion = std::nullopt) {
  Problem problem;
  problem.path = path;
  problem.file = path;
  problem.line = comment.line;
  problem.column = 1;
  problem.target = std::move(written);
  problem.code = Code::unused_suppression;
  problem.message = std::move(message);
  problem.suggestion = std::move(suggestion);
  problem.resolved = path;
  return problem;
}

}  // namespace

std::vector<Problem> unsuppressed(std::vector<Problem> problems, const std::string& path,
                                  const std::vector<gfm::Comment>& comments, bool report_unused) {
  std::vector<Suppression> suppressions;
  std::vector<Problem> bad;       // reported whatever report_unused says
  std::vector<std::size_t> open;  // the starts not yet ended, innermost last
  for (const gfm::Comment& comment : comments) {
    const std::vector<std::string_view> words = words_of(comment.text);
    if (words.empty() || !words[0].starts_with(PREFIX)) continue;
    const auto kind = std::find(KINDS.begin(), KINDS.end(), words[0]);
    if (kind == KINDS.end()) {
      bad.push_back(suppression_problem(path, comment, joined(words),
                                        in_quotes(words[0]) + " is no suppression",
                                        text::nearest(words[0], KINDS)));
      continue;
    }
    if (kind - KINDS.begin() == end) {
      if (open.empty()) {
        bad.push_back(suppression_problem(path, comment, joined(words),
                                          "an end of suppression with no start before it"));
      } else {
        suppressions[open.back()].last_line = comment.end_line;
        open.pop_back();
      }
      continue;
    }
    Suppression suppression{&comment, joined(words), 0, 0, {}, false, false};
    for (std::size_t at = 1; at < words.size(); ++at) {
      if (const auto code = code_named(words[at])) {
        suppression.codes.push_back(*code);
      } else {
        bad.push_back(suppression_problem(
            path, comment, joined(words),
            in_quotes(words[at]) + " is not a problem code, so it silences nothing",
            text::nearest(words[at], code_names())));
      }
    }
    suppression.inert = suppression.codes.empty() && words.size() > 1;
    switch (kind - KINDS.begin()) {
      case next_line:
        suppression.first_line = suppression.last_line = comment.end_line + 1;
        break;
      case start:
        suppression.first_line = comment.line;
        suppression.last_line = std::numeric_limits<std::int64_t>::max();
        open.push_back(suppressions.size());
        break;
      default:
        suppression.first_line = 1;
        suppression.last_line = std::numeric_limits<std::int64_t>::max();
    }
    suppressions.push_back(std::move(suppression));
  }
  if (suppressions.empty() && bad.empty()) return problems;

  std::vector<Problem> kept;
  for (Problem& problem : problems) {
    bool silenced = false;
    for (Suppression& suppression : suppressions) {
      if (suppression.inert || problem.line < suppression.first_line ||
          problem.line > suppression.last_line) {
        continue;
      }
      if (!suppression.codes.empty() &&
          std::find(suppression.codes.begin(), suppression.codes.end(), problem.code) ==
              suppression.codes.end()) {
        continue;
      }
      suppression.used = silenced = true;
    }
    if (!silenced) kept.push_back(std::move(problem));
  }
  if (report_unused) {
    for (const Suppression& suppression : suppressions) {
      if (suppression.used || suppression.inert) continue;
      kept.push_back(suppression_problem(path, *suppression.comment, suppression.written,
                                         "this suppression silences no problem"));
    }
  }
  kept.insert(kept.end(), std::make_move_iterator(bad.begin()), std::make_move_iterator(bad.end()));
  std::stable_sort(kept.begin(), kept.end(), [](const Problem& a, const Problem& b) {
    return std::pair(a.line, a.column) < std::pair(b.line, b.column);
  });
  return kept;
}

}  // namespace tarnwick::check
