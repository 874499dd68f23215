// Arbitrary text as inline Markdown, through the plain text and the link scan.
#include <cstddef>
#include <cstdint>
#include <string>

#include "engines/markdown/inline_text.hpp"
#include "engines/markdown/links.hpp"
#include "invariants.hpp"
#include "text/utf8.hpp"
#include "text/white_space.hpp"

using namespace tarnwick::text;

using namespace tarnwick;
using namespace tarnwick::engines::markdown::detail;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string markdown = decode_utf8({reinterpret_cast<const char*>(data), size});

  const std::string plain = plain_text(markdown);
  fuzz::require(fuzz::is_valid_utf8(plain), "plain text is UTF-8");
  fuzz::require(strip(plain) == plain && plain.find('\n') == plain.npos,
                "plain text is one stripped line");

  constexpr std::int64_t first_line = 7;
  std::int64_t previous_line = first_line;
  const auto lines = first_line + std::count(markdown.begin(), markdown.end(), '\n');
  for (const auto& target : inline_targets(markdown, first_line)) {
    fuzz::require(!target.target.empty() && strip(target.target) == target.target,
                  "a link target is stripped and not empty");
    fuzz::require(target.line >= previous_line && target.line <= lines,
                  "link targets come in line order");
    previous_line = target.line;
  }
  return 0;
}
