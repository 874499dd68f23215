#include "engines/markdown/inline_text.hpp"

#include <array>

#include "engines/markdown/utf8.hpp"
#include "engines/markdown/white_space.hpp"
#include "tarnwick/engines/markdown.hpp"

namespace tarnwick::engines::markdown::detail {

namespace {

constexpr std::string_view DESTINATION = R"re(\((?:[^()]|\([^()]*\))*\))re";

std::string join(std::initializer_list<std::string_view> pieces) {
  std::string out;
  for (const auto piece : pieces) out += piece;
  return out;
}

const Regex IMAGE{join({R"re((?<!\\)!\[([^\]]*)\])re", DESTINATION})};
const Regex LINK{join({R"re((?<![\\!])\[([^\]]*)\](?:)re", DESTINATION, R"re(|\[[^\]]*\]))re"})};
const Regex AUTOLINK{R"re(<((?:https?|ftp|mailto):[^\s<>]*)>)re"};
const Regex HTML{R"re(<!--.*?-->|</?[A-Za-z][A-Za-z0-9-]*(?:\s[^<>]*)?/?>)re", Regex::DOTALL};
const std::array<Regex, 3> EMPHASES{
    Regex{R"re((?<![\\*])(\*{1,3})(?=[^\s*])(.+?)(?<=[^\s\\*])\1(?!\*))re", Regex::DOTALL},
    Regex{R"re((?<![\\\w])(_{1,3})(?=[^\s_])(.+?)(?<=[^\s\\_])\1(?!\w))re", Regex::DOTALL},
    Regex{R"re((?<!\\)(~~)(?=\S)(.+?)(?<=\S)\1)re", Regex::DOTALL},
};
const Regex ESCAPE{R"re(\\([!-/:-@\[-`{-~\n]))re"};

constexpr int DELETE = -1;

}  // namespace

const Regex CODE_SPAN{R"re((?<![\\`])(`+)(?!`)(.+?)(?<!`)\1(?!`))re", Regex::DOTALL};

std::string unmarked(std::string_view text) {
  std::string result = replace_all(IMAGE, text, 1);
  result = replace_all(LINK, result, 1);
  result = replace_all(AUTOLINK, result, 1);
  result = replace_all(HTML, result, DELETE);
  for (const Regex& emphasis : EMPHASES) result = replace_all(emphasis, result, 2);
  return replace_all(ESCAPE, result, 1);
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
