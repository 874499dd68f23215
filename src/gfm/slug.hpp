// Unicode case, and the ids GitHub gives a Markdown file's headings.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

namespace tarnwick::gfm {

// Lowercases UTF-8 text with Unicode's full case rules, as JavaScript's toLowerCase does
// ("İ" becomes "i̇", a final sigma "ς"). Ill-formed bytes become U+FFFD.
std::string lowercase(std::string_view text);

// Folds the case of UTF-8 text with Unicode's full case folding, as labels are compared.
std::string case_fold(std::string_view text);

// The id of a heading whose rendered text is `text`, before repeats are numbered: the text
// lowercased, every character that is not alphabetic, a mark, a decimal digit, connector
// punctuation, "-" or space removed, and each space turned into "-", nothing collapsed or trimmed.
std::string slug(std::string_view text);

// The ids of one document's headings in order: a repeated slug gets "-1", "-2", ..., a suffix
// already taken (by a heading whose own text ends so) being skipped.
class HeadingIds {
 public:
  std::string next(std::string_view text);

 private:
  std::unordered_map<std::string, unsigned> occurrences_;
};

}  // namespace tarnwick::gfm
