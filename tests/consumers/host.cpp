// A host of the library: indexes the Markdown files named on its command line and prints what
// the engine found. With no arguments it indexes documents that nest 300 levels deep.
#include <tarnwick/markdown.hpp>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace {

void print(const tarnwick::IndexedDocument& document) {
  for (const tarnwick::Symbol& symbol : document.symbols) {
    std::printf("section %s [%lld-%lld]\n", symbol.fqn.c_str(),
                static_cast<long long>(symbol.start_line), static_cast<long long>(symbol.end_line));
  }
  for (const auto& reference : document.references) {
    std::printf("%s %s line %lld\n",
                std::string(tarnwick::engines::references::to_string(reference.kind)).c_str(),
                reference.name.c_str(), static_cast<long long>(reference.line));
  }
}

std::string nested(const std::string& opening, int depth) {
  std::string text;
  for (int level = 0; level < depth; ++level) {
    text += std::string(static_cast<std::size_t>(level) * opening.size(), ' ') + opening +
            "# Level " + std::to_string(level) + " [a](a.md)\n";
  }
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  std::printf("tarnwick-markdown %s\n", TARNWICK_MARKDOWN_VERSION);
  if (argc == 1) {
    std::string quotes;
    for (int level = 1; level <= 300; ++level) quotes += std::string(level, '>') + " [q](q.md)\n";
    for (const std::string& text : {quotes, nested("- ", 300)}) {
      const tarnwick::IndexedDocument document = tarnwick::index_markdown(text, "hostile.md");
      std::printf("hostile: %zu sections, %zu references\n", document.symbols.size(),
                  document.references.size());
    }
    return 0;
  }
  for (int i = 1; i < argc; ++i) {
    std::ifstream file(argv[i], std::ios::binary);
    if (!file) {
      std::fprintf(stderr, "host: cannot read %s\n", argv[i]);
      return 1;
    }
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    print(tarnwick::index_markdown(bytes, argv[i]));
  }
  return 0;
}
