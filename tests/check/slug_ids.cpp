// Prints the heading ids of documents read from stdin: one heading's text a line, a blank line
// between documents. slugs.mjs compares them with github-slugger's.
#include <iostream>
#include <string>

#include "gfm/slug.hpp"

int main() {
  tarnwick::gfm::HeadingIds ids;
  for (std::string line; std::getline(std::cin, line);) {
    if (line.empty()) {
      ids = {};
      std::cout << '\n';
    } else {
      std::cout << ids.next(line) << '\n';
    }
  }
  return std::cout.flush() ? 0 : 1;
}
