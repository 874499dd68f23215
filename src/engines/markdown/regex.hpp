// Regular expressions over UTF-8 text, as the engine writes them: PCRE2 in UTF mode,
// JIT-compiled once, with \s, \S and \w spelled out as the engine defines them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

struct pcre2_real_code_8;

namespace tarnwick::engines::markdown::detail {

// One match: the byte offsets of the whole match (group 0) and of each capture group.
class Match {
 public:
  static constexpr int MAX_GROUPS = 4;  // group 0 and up to three captures

  std::size_t start() const { return offsets_[0]; }
  std::size_t end() const { return offsets_[1]; }
  bool has(int group) const { return offsets_[2 * group] != UNSET; }
  // The text of a group in `subject`; empty when the group did not take part.
  std::string_view group(std::string_view subject, int group) const;

 private:
  friend class Regex;
  static constexpr std::size_t UNSET = ~std::size_t{0};
  std::array<std::size_t, 2 * MAX_GROUPS> offsets_{};
};

// A pattern, compiled on its first use: so patterns are constants (constinit), which any
// static initialiser and any number of threads may use at once. A pattern that does not
// compile is a programming error, and its first use throws.
class Regex {
 public:
  enum Options : std::uint32_t { NONE = 0, DOTALL = 1 };
  // Makes the text of a pattern that is not a literal.
  using Builder = std::string (*)();

  constexpr explicit Regex(std::string_view pattern, Options options = NONE)
      : pattern_(pattern), options_(options) {}
  constexpr explicit Regex(Builder build, Options options = NONE)
      : build_(build), options_(options) {}
  ~Regex();
  Regex(const Regex&) = delete;
  Regex& operator=(const Regex&) = delete;

  // The leftmost match that starts at or after `start`. Look-behind sees the text before it.
  // A pattern anchors itself with ^ and $: anchoring options at match time would take PCRE2
  // off its JIT-compiled code.
  std::optional<Match> search(std::string_view subject, std::size_t start = 0) const;

 private:
  const pcre2_real_code_8* compiled() const;

  std::string_view pattern_;
  Builder build_ = nullptr;
  Options options_;
  mutable std::once_flag compile_once_;
  mutable pcre2_real_code_8* code_ = nullptr;  // owned; set once by compiled()
};

// Replaces every non-overlapping match, left to right, by the text of `group` (0 for the
// whole match would keep it; -1 deletes). Replacements are never scanned again.
std::string replace_all(const Regex& pattern, std::string_view text, int group);

// The pattern text with \s, \S and \w replaced by the engine's own classes.
std::string spell_out_classes(std::string_view pattern);

}  // namespace tarnwick::engines::markdown::detail
