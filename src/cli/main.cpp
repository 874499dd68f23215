// tarnwick-md: the Markdown engine of tarnwick on the command line.
#include <CLI/CLI.hpp>

#include <filesystem>
#include <iostream>
#include <thread>

#include "cli/index.hpp"
#include "cli/views.hpp"
#include "tarnwick/markdown.hpp"

int main(int argc, char** argv) {
  CLI::App app{"tarnwick-md: index the outline and the file links of Markdown documents."};
  app.require_subcommand(1);
  app.set_version_flag("-V,--version", "tarnwick-md " TARNWICK_MARKDOWN_VERSION,
                       "Print the version and exit.");

  tarnwick::cli::IndexOptions index;
  auto* index_command = app.add_subcommand(
      "index",
      "Print the sections and links of every Markdown file as JSON Lines records "
      "(one symbol or reference per line).");
  index_command
      ->add_option("PATH", index.paths,
                   "Files or directories to index. A directory is walked for *.md and "
                   "*.markdown files, skipping hidden entries, node_modules and links. "
                   "Default: the current directory.")
      ->type_name("PATH...");
  index_command->add_flag("-v,--verbose", index.verbose,
                          "Write the engine's debug lines (unreadable front matter) to stderr.");
  index_command->add_option("--prefix", index.prefix,
                            "The FQN prefix of the file's sections, in place of the one made "
                            "from its path. Only with a single file argument.");

  index.jobs = std::max(1u, std::thread::hardware_concurrency());
  index_command
      ->add_option("-j,--jobs", index.jobs,
                   "Files indexed at once, each on its own thread. The output is the "
                   "same for any number. Default: the number of cores.")
      ->check(CLI::Range(1u, 1024u));

  std::string file;
  auto* outline_command = app.add_subcommand(
      "outline",
      "Show the outline of a Markdown file: its sections as an indented tree, each "
      "with its line range and the start of its docstring.");
  outline_command->add_option("FILE", file, "The Markdown file.")->required();
  auto* links_command = app.add_subcommand(
      "links",
      "Show the links of a Markdown file to other files: line, kind, target and the "
      "section that holds the link.");
  links_command->add_option("FILE", file, "The Markdown file.")->required();

  CLI11_PARSE(app, argc, argv);

  if (outline_command->parsed()) return tarnwick::cli::run_outline(file, std::cout, std::cerr);
  if (links_command->parsed()) return tarnwick::cli::run_links(file, std::cout, std::cerr);

  if (index_command->parsed()) {
    if (index.paths.empty()) index.paths.push_back(".");
    if (index.prefix &&
        (index.paths.size() != 1 || std::filesystem::is_directory(index.paths[0]))) {
      std::cerr << "tarnwick-md: --prefix needs a single file argument\n";
      return 2;
    }
    std::ios::sync_with_stdio(false);
    return tarnwick::cli::run_index(index, std::cout, std::cerr);
  }
  return 0;
}
