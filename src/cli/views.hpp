// Views of one file for people: its outline as an indented tree, and its links.
#pragma once

#include <iosfwd>
#include <string>

namespace tarnwick::cli {

// `tarnwick-md outline FILE` and `tarnwick-md links FILE`; return the exit status.
int run_outline(const std::string& path, std::ostream& out, std::ostream& err);
int run_links(const std::string& path, std::ostream& out, std::ostream& err);

}  // namespace tarnwick::cli
