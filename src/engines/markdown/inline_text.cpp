#include "engines/markdown/inline_text.hpp"

#include <array>

#include "tarnwick/engines/markdown.hpp"
#include "text/utf8.hpp"
#include "text/white_space.hpp"

using namespace tarnwick::text;

namespace tarnwick::engines::markdown::detail {

namespace {

constexpr std::string_view DESTINATION = R"re(\((?:[^()]|\([^()]*\))*\))re";

std::string join(std::initializer_list<std::string_view> pieces) {
  std::string out;
  for (const auto piece : pieces) out += piece;
  return out;
}

constinit const Regex IMAGE{[] { return join({R"re((?<!\\)!\[([^\]]*)\])re", DESTINATION}); }};
constinit const Regex LINK{[] {
  return join({R"re((?<![\\!])\[([^\]]*)\](?:)re", DESTINATION, R"re(|\[[^\]]*\]))re"});
}};
constinit const Regex AUTOLINK{R"re(<((?:https?|ftp|mailto):[^\s<>]*)>)re"};
constinit const Regex HTML{R"re(<!--.*?-->|</?[A-Za-z][A-Za-z0-9-]*(?:\s[^<>]*)?/?>)re",
                           Regex::DOTALL};
constinit const Regex STAR_EMPHASIS{
    R"re((?<![\\*])(\*{1,3})(?=[^\s*])(.+?)(?<=[^\s\\*])\1(?!\*))re", Regex::DOTALL};
constinit const Regex UNDERSCORE_EMPHASIS{
    R"re((?<![\\\w])(_{1,3})(?=[^\s_])(.+?)(?<=[^\s\\_])\1(?!\w))re", Regex::DOTALL};
constinit const Regex STRIKETHROUGH{R"re((?<!\\)(~~)(?=\S)(.+?)(?<=\S)\1)re", Regex::DOTALL};
constinit const Regex ESCAPE{R"re(\\([!-/:-@\[-`{-~\n]))re"};

constexpr int DELETE = -1;

// A rewrite of marked-up text: its pattern, a byte that every match holds (text without it is
// left alone, unscanned), and the group that replaces a match.
struct Unmarking {
  const Regex* pattern;
  char marker;
  int group;
};

// In order: images before links, so that an image's "!" goes with it.
constexpr Unmarking UNMARKINGS[] = {
    {&IMAGE, '!', 1},         {&LINK, '[', 1},          {&AUTOLINK, '<', 1},
    {&HTML, '<', DELETE},     {&STAR_EMPHASIS, '*', 2}, {&UNDERSCORE_EMPHASIS, '_', 2},
    {&STRIKETHROUGH, '~', 2}, {&ESCAPE, '\\', 1},
};

}  // namespace

constinit const Regex CODE_SPAN{R"re((?<![\\`])(`+)(?!`)(.+?)(?<!`)\1(?!`))re", Regex::DOTALL};

std::string unmarked(std::string_view text) {
  std::string result(text);
  for (const auto& [pattern, marker, group] : UNMARKINGS) {
    if (result.find(marker) != std::string::npos) result = replace_all(*pattern, result, group);
  }
  return result;
}

std::string plain_text(std::string_view markdown) {
  const std::string_view kept = first_code_points(markdown, MAX_INLINE_LENGTH);
  std::string joined;
  std::size_t done = 0;
  while (const auto span = CODE_SPAN.search(kept, done)) {
    joined += unmarked(kept.substr(done, span->start() - done));
    joined += span->group(kept, 2);
    done = span->end();
  }
  joined += unmarked(kept.substr(done));
  return collapse_white_space(joined);
}

}  // namespace tarnwick::engines::markdown::detail
