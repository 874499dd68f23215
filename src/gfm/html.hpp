// Attributes of raw HTML, as far as links and anchors need them.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace tarnwick::gfm {

struct HtmlAttribute {
  std::string name;          // ASCII letters lowercased
  std::string value;         // character references decoded
  std::string_view written;  // the value as written, a view into the HTML
  std::size_t offset;        // of the attribute's name in the HTML
};

// Calls `visit` for each attribute of each start tag of `html`, in order. Comments,
// declarations, processing instructions and end tags hold none.
void for_each_attribute(std::string_view html,
                        const std::function<void(const HtmlAttribute&)>& visit);

}  // namespace tarnwick::gfm
