// Arbitrary text as a front matter body, through the YAML and the TOML reader and the turning
// of their fields into plain text.
#include <cstddef>
#include <cstdint>
#include <string>

#include "engines/markdown/front_matter.hpp"
#include "engines/markdown/toml.hpp"
#include "engines/markdown/yaml.hpp"
#include "invariants.hpp"
#include "text/utf8.hpp"

using namespace tarnwick::text;

using namespace tarnwick;
using namespace tarnwick::engines::markdown::detail;

namespace {

void check_fields(const Fields& fields) {
  for (const auto key : {TITLE, DESCRIPTION}) {
    if (const auto text = field(fields, key)) {
      fuzz::require(!text->empty() && fuzz::is_valid_utf8(*text), "a field is plain UTF-8 text");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const engines::markdown::IndexerRules rules{
      .unique_fqn = {},
      .cap_docstring = {},
      .debug_log = [](std::string_view, std::string_view message) {
        fuzz::require(fuzz::is_valid_utf8(message) && message.find('\n') == message.npos,
                      "a debug line is one line of UTF-8");
      }};
  const std::string body = decode_utf8({reinterpret_cast<const char*>(data), size});
  check_fields(yaml_fields(body, "README", Logger(rules)));
  check_fields(toml_fields(body));
  return 0;
}
