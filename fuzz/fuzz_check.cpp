// Any bytes through the link checker's reading of a document, with and without wiki links.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "gfm/document.hpp"
#include "invariants.hpp"

using namespace tarnwick;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view markdown(reinterpret_cast<const char*>(data), size);
  for (const bool wiki : {false, true})
    fuzz::check_links(gfm::read_links(markdown, wiki), markdown);
  return 0;
}
