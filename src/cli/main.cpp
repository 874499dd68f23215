// tarnwick-md: the Markdown engine of tarnwick on the command line.
#include <unistd.h>
#include <CLI/CLI.hpp>
#ifdef TARNWICK_MIMALLOC
#include <mimalloc.h>
#endif

#include <csignal>
#include <filesystem>
#include <iostream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "cli/check.hpp"
#include "cli/config.hpp"
#include "cli/index.hpp"
#include "cli/output.hpp"
#include "cli/store.hpp"
#include "cli/views.hpp"
#include "lsp/server.hpp"
#include "tarnwick/markdown.hpp"
#include "text/nearest.hpp"

namespace {

constexpr const char* PROGRAM = "tarnwick-md";

constexpr const char* SHORT_USAGE =
    "Usage: tarnwick-md COMMAND [OPTIONS] [ARGS...]\n"
    "Commands: index, check, outline, links, lsp, export, refs, symbols, help. Run "
    "'tarnwick-md help' for more.\n";

constexpr const char* EXIT_STATUS =
    "Exit status: 0 success, 1 some input could not be read or the output could not be "
    "written, 2 usage error.";

constexpr const char* EXPORT_EXIT_STATUS =
    "Exit status: 0 success, 1 the last update could not read some input or the output could "
    "not be written, 2 usage error or a store that cannot be read.";

constexpr const char* QUERY_EXIT_STATUS =
    "Exit status: 0 something found, 1 nothing found or the output could not be written, 2 "
    "usage error or a store that cannot be read.";

constexpr const char* CHECK_EXIT_STATUS =
    "Exit status: 0 no problem, 1 problems found, 2 usage error, or some input could not be "
    "read or the output could not be written.";

// A usage error: one line naming the problem, a suggestion when there is one, exit status 2.
int usage_error(const std::string& problem, const std::optional<std::string>& suggestion) {
  std::cerr << PROGRAM << ": " << problem << "\n";
  if (suggestion) std::cerr << PROGRAM << ": did you mean '" << *suggestion << "'?\n";
  std::cerr << "Run 'tarnwick-md help' for usage.\n";
  return 2;
}

// The names of a command's options, long and short, as they are written.
std::vector<std::string> option_names(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options()) {
    for (const auto& name : option->get_lnames()) names.push_back("--" + name);
    for (const auto& name : option->get_snames()) names.push_back("-" + name);
  }
  return names;
}

// The first word of the arguments that is written as an option but names none of `command`'s.
std::optional<std::string> unknown_option(const CLI::App& command, int argc, char** argv) {
  const std::vector<std::string> known = option_names(command);
  for (int i = 1; i < argc; ++i) {
    std::string word = argv[i];
    if (word == "--") break;
    if (!word.starts_with('-') || word == "-") continue;
    word = word.substr(0, word.find('='));
    if (!word.starts_with("--") && word.size() > 2) word.resize(2);  // -j4
    if (std::find(known.begin(), known.end(), word) == known.end()) return word;
  }
  return std::nullopt;
}

// -j/--jobs: how many files at once, from 1 to 1024, by default one per core.
void add_jobs_option(CLI::App& command, unsigned& jobs, const std::string& description) {
  jobs = std::max(1u, std::thread::hardware_concurrency());
  command.add_option("-j,--jobs", jobs, description)
      ->type_name("N")
      ->check(CLI::Range(1u, 1024u).description(""));
}

// --config FILE and --no-config: which configuration file a command reads for `settings`.
void add_config_options(CLI::App& command, tarnwick::cli::ConfigChoice& choice,
                        const std::string& settings) {
  command
      .add_option("--config", choice.file,
                  "Read the settings " + settings +
                      " from FILE, not from .tarnwick-md.toml in the current directory. Flags "
                      "add to the file's lists and override its values.")
      ->type_name("FILE");
  command.add_flag("--no-config", choice.none, "Read no configuration file.");
}

// A configuration file that cannot be used: its one line, exit status 2.
int configuration_error(const std::string& line) {
  std::cerr << PROGRAM << ": " << line << "\n";
  return 2;
}

int print_help(const CLI::App& command) {
  std::cout << command.help(command.get_parent() ? PROGRAM : "");
  return tarnwick::cli::flushed(std::cout, std::cerr) ? 0 : 1;
}

#ifdef TARNWICK_MIMALLOC
// Memory committed eagerly, in huge pages where the system offers them: a page fault costs tens
// of microseconds on some machines, and faulting memory in 4 KiB at a time took half of a store
// query's time, most of a warm store update's and a third of the time until the server's
// workspace is ready. Set before the first allocation, so that the first segment, where a short
// command's memory all lies, is allocated so too: the C++ runtime, linked statically, allocates
// in static initialisers that run after this one.
__attribute__((constructor(101))) void commit_memory_eagerly() {
  mi_option_enable(mi_option_large_os_pages);
  mi_option_set(mi_option_eager_commit_delay, 0);
}
#endif

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Index the outline and the file links of Markdown documents.", PROGRAM};
  app.require_subcommand(1);
  app.set_version_flag("-V,--version", std::string(PROGRAM) + " " + TARNWICK_MARKDOWN_VERSION,
                       "Print the version and exit.");
  app.footer(EXIT_STATUS);

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
      ->type_name("");
  index_command->add_flag("-v,--verbose", index.verbose,
                          "Write the engine's debug lines (unreadable front matter) to stderr.");
  index_command->add_flag("-q,--quiet", index.quiet,
                          "Show no progress line (it is shown only when stderr is a terminal "
                          "that stdout is not).");
  index_command
      ->add_option("--prefix", index.selection.prefix,
                   "The FQN prefix of the file's sections, in place of the one made "
                   "from its path. Only with a single file argument.")
      ->type_name("PREFIX");
  index_command
      ->add_option("--stdin-path", index.selection.stdin_path,
                   "The repository path of the file read from '-' (stdin), which names its "
                   "records and makes its FQN prefix.")
      ->type_name("PATH");
  index_command->add_flag("--hidden", index.selection.hidden,
                          "Walk entries whose name starts with '.' too.");
  index_command->add_flag("--follow", index.selection.follow, "Follow symbolic links.");
  bool no_ignore = false;
  index_command->add_flag("--no-ignore", no_ignore,
                          "Index what git and .ignore files ignore too: by default, inside a git "
                          "work tree, what .gitignore files, git's excludes and .ignore files "
                          "(which take precedence) ignore is left out.");
  index_command
      ->add_option("--exclude", index.selection.excludes,
                   "Leave out files and folders whose name matches GLOB, or whose path from "
                   "the argument does when GLOB holds a '/'. May be repeated.")
      ->type_name("GLOB")
      ->allow_extra_args(false);
  index_command->add_flag("--paths-from-cwd", index.selection.paths_from_cwd,
                          "Write paths (and make FQN prefixes) relative to the current "
                          "directory rather than to each argument, so that files of several "
                          "directory arguments keep distinct paths.");
  index_command->add_flag("--files", index.list_files,
                          "Print the files that would be indexed, one a line, and stop.");
  add_jobs_option(*index_command, index.jobs,
                  "Files indexed at once (1 to 1024), each on its own thread. The output is the "
                  "same for any number. Default: the number of cores.");
  tarnwick::cli::ConfigChoice index_config;
  add_config_options(*index_command, index_config, "(its exclude globs)");
  index_command->footer(
      "Examples:\n"
      "  tarnwick-md index docs > records.jsonl\n"
      "  tarnwick-md index --prefix guide -v notes/setup.md\n"
      "  git show HEAD:README.md | tarnwick-md index --stdin-path README.md -\n"
      "  tarnwick-md index --db index.db .\n\n" +
      std::string(EXIT_STATUS) + " With --db, 2 also when the store cannot be used.");

  // The index store: `index --db` updates it.
  std::optional<std::string> index_db;
  bool index_rebuild = false;
  index_command
      ->add_option("--db", index_db,
                   "Create or update the SQLite store FILE instead of printing the records: only "
                   "files whose size, time or inode changed are read, and only content the "
                   "store does not hold is parsed. Without PATH, the last update's paths and "
                   "selection are indexed again.")
      ->type_name("FILE");
  index_command->add_flag("--rebuild", index_rebuild,
                          "With --db: start the store over (also one of another schema version).");

  tarnwick::check::CheckOptions check;
  auto* check_command = app.add_subcommand(
      "check",
      "Check every link of the Markdown files as github.com renders them: files, folders and "
      "anchors (headings, HTML ids and names, footnotes), case-exact.");
  check_command
      ->add_option("PATH", check.paths,
                   "Files or directories to check; each directory is a repository root, against "
                   "whose files the links are checked. Markdown files are selected as index "
                   "selects them. Default: the current directory.")
      ->type_name("");
  check_command
      ->add_option("--root", check.root,
                   "The repository root of all the paths, in place of each directory argument "
                   "(and of the current directory for file arguments).")
      ->type_name("DIR");
  check_command
      ->add_option("--format", check.format,
                   "text (path:line:column: code: message), json (JSON Lines), sarif (SARIF "
                   "2.1.0) or github (workflow annotations). Default: text.")
      ->type_name("FORMAT")
      ->transform(CLI::CheckedTransformer(std::map<std::string, tarnwick::check::Format>{
                                              {"text", tarnwick::check::Format::text},
                                              {"json", tarnwick::check::Format::json},
                                              {"sarif", tarnwick::check::Format::sarif},
                                              {"github", tarnwick::check::Format::github}})
                      .description(""));
  std::vector<std::string> ignored_codes;
  check_command
      ->add_option("--ignore", ignored_codes,
                   "Do not report problems of this code (see below). May be repeated.")
      ->type_name("CODE")
      ->allow_extra_args(false);
  const CLI::Option* wiki_option = check_command->add_flag(
      "--wiki,!--no-wiki", check.wiki,
      "Check [[Page]], [[Page#Heading]] and [[Page|label]] wiki links too: a page is a Markdown "
      "file of that name anywhere under the root. --no-wiki overrides the configuration's "
      "wiki = true.");
  check_command->add_flag("--report-unused-suppressions", check.report_unused_suppressions,
                          "Report each tarnwick-md-ignore comment that silences no problem, as "
                          "unused-suppression.");
  check_command
      ->add_option("--accept", check.accepted,
                   "Report no problem of a link whose target, as written, matches GLOB ('*' "
                   "matches '/' too). May be repeated.")
      ->type_name("GLOB")
      ->allow_extra_args(false);
  check_command
      ->add_option("--changed", check.changed,
                   "Report only the links from these files and the links into them. Takes "
                   "the arguments up to the next option, so PATHs go before it.")
      ->type_name("FILE");
  check_command
      ->add_option("--changed-since", check.changed_since,
                   "Report only the links from and into the files that differ from the git "
                   "commit REF (staged, unstaged and untracked changes included).")
      ->type_name("REF");
  check_command
      ->add_option("--exclude", check.selection.excludes,
                   "Check no links of files and folders whose name matches GLOB, or whose "
                   "path does when GLOB holds a '/'. They still count as link targets. May be "
                   "repeated.")
      ->type_name("GLOB")
      ->allow_extra_args(false);
  check_command->add_flag("--hidden", check.selection.hidden,
                          "Check the links of files under entries whose name starts with '.' "
                          "too (they are always link targets).");
  check_command->add_flag("--follow", check.selection.follow, "Follow symbolic links.");
  bool check_no_ignore = false;
  check_command->add_flag("--no-ignore", check_no_ignore,
                          "Take what git ignores as part of the repository too.");
  add_jobs_option(*check_command, check.jobs,
                  "Files read at once (1 to 1024). Default: the number of cores.");
  tarnwick::cli::ConfigChoice check_config;
  add_config_options(*check_command, check_config, "(ignore, exclude, accept, wiki)");
  tarnwick::cli::BaselineFiles check_baseline;
  check_command
      ->add_option("--baseline", check_baseline.compare_with,
                   "Report only the problems that FILE, written by --write-baseline, does not "
                   "know (matched by file, code and target, not by line), and how many it knows "
                   "are fixed; exit with 1 only on new ones. SARIF marks each result new or "
                   "unchanged.")
      ->type_name("FILE");
  check_command
      ->add_option("--write-baseline", check_baseline.write_to,
                   "Record the problems found in FILE as known, instead of reporting them.")
      ->type_name("FILE");
  {
    std::string codes = "Problem codes:\n";
    for (const auto& code : tarnwick::check::CODES) {
      codes += "  " + std::string(code.name) + std::string(27 - code.name.size(), ' ') +
               std::string(code.description) + "\n";
    }
    check_command->footer(
        codes +
        "\nExamples:\n"
        "  tarnwick-md check\n"
        "  tarnwick-md check --ignore site-path --format github docs\n"
        "  tarnwick-md check --changed-since HEAD --format sarif > links.sarif\n\n" +
        std::string(CHECK_EXIT_STATUS));
  }

  tarnwick::cli::ViewOptions view;
  auto* outline_command = app.add_subcommand(
      "outline",
      "Show the outline of Markdown files: their sections as an indented tree, each with its "
      "line range and the start of its docstring.");
  auto* links_command = app.add_subcommand(
      "links",
      "Show the links of Markdown files to other files: line, kind, target and the heading "
      "path of the section that holds the link.");
  for (CLI::App* command : {outline_command, links_command}) {
    command
        ->add_option("PATH", view.paths,
                     "Markdown files, directories (walked as index walks them) or '-' for "
                     "stdin. Control characters are shown escaped, and lines cut to the "
                     "terminal's width.")
        ->required()
        ->type_name("");
    command->add_flag("--json", view.json, "Print the records of index instead, as JSON Lines.");
  }
  outline_command->footer(
      "Examples:\n  tarnwick-md outline README.md\n  tarnwick-md outline docs\n\n" +
      std::string(EXIT_STATUS));
  links_command->footer(
      "Examples:\n  tarnwick-md links docs/tour.md\n  tarnwick-md links --json docs\n\n" +
      std::string(EXIT_STATUS));

  // lsp: the language server, over stdin and stdout.
  auto* lsp_command = app.add_subcommand(
      "lsp",
      "Run the Markdown language server over stdin and stdout, for editors that speak the "
      "Language Server Protocol: outline, folding and the repository's links.");
  lsp_command->add_flag("--stdio")->description(
      "Accepted and ignored: stdio is the only transport (editors pass it).");
  lsp_command->footer(
      "Editors start it themselves; docs/lsp.md has the set-up for Neovim, Helix, Emacs and "
      "VS Code.\nLogs go to stderr and to the editor's log.\n\n"
      "Exit status: 0 after the client's shutdown and exit, 1 when the session ended without "
      "shutdown, 2 usage error.");

  // The index store's export and queries.
  std::string export_db;
  auto* export_command = app.add_subcommand(
      "export",
      "Print the records of an index store as JSON Lines: byte for byte what index prints for "
      "the paths and selection of the store's last update.");
  export_command->add_option("--db", export_db, "The store, made by index --db.")
      ->type_name("FILE")
      ->required();
  export_command->footer("Examples:\n  tarnwick-md export --db index.db > records.jsonl\n\n" +
                         std::string(EXPORT_EXIT_STATUS));
  tarnwick::cli::QueryCommand query;
  auto* refs_command = app.add_subcommand(
      "refs",
      "Show the references of an index store that lead to a file: document links resolved from "
      "the linking file's folder, and wiki links to the one page they name.");
  refs_command
      ->add_option("TARGET", query.question,
                   "A path as the records write it; with #FRAGMENT, only the links to that "
                   "anchor (written so, or naming the same heading).")
      ->required()
      ->type_name("");
  auto* symbols_command = app.add_subcommand(
      "symbols",
      "Search the sections of an index store by the words of their names, heading paths and "
      "docstrings, best match first.");
  std::vector<std::string> query_words;
  symbols_command
      ->add_option("QUERY", query_words,
                   "Words that a section must all hold, in any order, in any case; a word ending "
                   "in '*' matches the words it starts.")
      ->required()
      ->type_name("");
  std::size_t symbols_limit = 20;
  for (CLI::App* command : {refs_command, symbols_command}) {
    command->add_option("--db", query.db, "The store, made by index --db.")
        ->type_name("FILE")
        ->required();
    command->add_flag("--json", query.json, "Print the records of index instead, as JSON Lines.");
  }
  refs_command->add_option("--limit", query.limit, "Show at most N references, in file order.")
      ->type_name("N")
      ->check(CLI::PositiveNumber.description(""));
  symbols_command->add_option("--limit", symbols_limit, "Show at most N sections. Default: 20.")
      ->type_name("N")
      ->check(CLI::PositiveNumber.description(""));
  refs_command->footer(
      "Examples:\n  tarnwick-md refs --db index.db docs/setup.md\n"
      "  tarnwick-md refs --db index.db --json 'docs/setup.md#install'\n\n" +
      std::string(QUERY_EXIT_STATUS));
  symbols_command->footer(
      "Examples:\n  tarnwick-md symbols --db index.db install\n"
      "  tarnwick-md symbols --db index.db --limit 5 --json 'inst*'\n\n" +
      std::string(QUERY_EXIT_STATUS));

  std::vector<std::string> commands;
  for (const CLI::App* command : app.get_subcommands({})) commands.push_back(command->get_name());
  commands.push_back("help");

  if (argc == 1) {
    std::cerr << SHORT_USAGE;
    return 2;
  }
  const std::string first = argv[1];
  if (first == "help") {
    if (argc == 2) return print_help(app);
    if (argc == 3) {
      for (const CLI::App* command : app.get_subcommands({})) {
        if (command->get_name() == argv[2]) return print_help(*command);
      }
    }
    return usage_error(
        "'" + std::string(argv[argc == 3 ? 2 : 3]) + "' is not a command to help with",
        tarnwick::text::nearest(argv[2], commands));
  }
  if (!first.starts_with('-') &&
      std::find(commands.begin(), commands.end(), first) == commands.end()) {
    return usage_error("'" + first + "' is not a tarnwick-md command",
                       tarnwick::text::nearest(first, commands));
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {  // --help or --version
      app.exit(error);
      return tarnwick::cli::flushed(std::cout, std::cerr) ? 0 : 1;
    }
    const CLI::App* command = &app;
    for (const CLI::App* sub : app.get_subcommands({})) {
      if (sub->get_name() == first) command = sub;
    }
    if (const auto word = unknown_option(*command, argc, argv)) {
      return usage_error("unknown option '" + *word + "'" +
                             (command == &app ? "" : " for '" + command->get_name() + "'"),
                         tarnwick::text::nearest(*word, option_names(*command)));
    }
    return usage_error(error.what(), std::nullopt);
  }

  if (lsp_command->parsed()) {
    // A client that went away must end the session through a failed write, not a signal.
    std::signal(SIGPIPE, SIG_IGN);
#ifdef TARNWICK_MIMALLOC
    // A server reads a document again at every keystroke: memory handed back to the system
    // between two of them is faulted in again at the next, which took most of the time.
    mi_option_disable(mi_option_allow_decommit);
    mi_option_disable(mi_option_page_reset);
#endif
    tarnwick::lsp::serve(STDIN_FILENO, STDOUT_FILENO);
  }
  int status = 0;
  if (check_command->parsed()) {
    if (check.paths.empty()) check.paths.push_back(".");
    if (std::find(check.paths.begin(), check.paths.end(), "-") != check.paths.end()) {
      return usage_error("check reads the files of a repository, not '-' (stdin)", std::nullopt);
    }
    if (!check.changed.empty() && check.changed_since) {
      return usage_error("--changed and --changed-since cannot be used together", std::nullopt);
    }
    for (const std::string& name : ignored_codes) {
      const auto code = tarnwick::check::code_named(name);
      if (!code) {
        return usage_error("'" + name + "' is not a problem code",
                           tarnwick::text::nearest(name, tarnwick::check::code_names()));
      }
      check.ignored.push_back(*code);
    }
    check.selection.git_ignores = !check_no_ignore;
    if (const auto error =
            tarnwick::cli::configure_check(check_config, check, wiki_option->count() > 0)) {
      return configuration_error(*error);
    }
    std::ios::sync_with_stdio(false);
    if (check_baseline.compare_with && check_baseline.write_to) {
      return usage_error("--baseline and --write-baseline cannot be used together", std::nullopt);
    }
    return tarnwick::cli::run_check(check, check_baseline, std::cout, std::cerr);
  }
  if (index_command->parsed() && index_db) {
    tarnwick::cli::UpdateCommand update{index, *index_db, index_rebuild, index.paths.empty()};
    update.index.selection.git_ignores = !no_ignore;
    if (std::find(index.paths.begin(), index.paths.end(), "-") != index.paths.end()) {
      return usage_error("--db indexes files it can read again, not '-' (stdin)", std::nullopt);
    }
    if (index.list_files) {
      return usage_error("--files and --db cannot be used together", std::nullopt);
    }
    if (index.selection.prefix &&
        (index.paths.size() != 1 || std::filesystem::is_directory(index.paths[0]))) {
      return usage_error("--prefix needs a single file argument", std::nullopt);
    }
    for (const char* selection : {"--stdin-path", "--hidden", "--follow", "--no-ignore",
                                  "--exclude", "--paths-from-cwd", "--config"}) {
      if (update.repeat && index_command->count(selection) > 0) {
        return usage_error(std::string(selection) +
                               " needs PATH with --db: without PATH, the last update's "
                               "selection is repeated",
                           std::nullopt);
      }
    }
    if (!update.repeat) {
      if (const auto error = tarnwick::cli::configure_index(index_config, update.index.selection)) {
        return configuration_error(*error);
      }
    }
    return tarnwick::cli::run_update(update, std::cerr);
  }
  if (index_rebuild && index_command->parsed()) {
    return usage_error("--rebuild needs --db", std::nullopt);
  }
  if (export_command->parsed()) {
    std::ios::sync_with_stdio(false);
    return tarnwick::cli::run_export(export_db, std::cout, std::cerr);
  }
  if (refs_command->parsed()) return tarnwick::cli::run_refs(query, std::cout, std::cerr);
  if (symbols_command->parsed()) {
    for (const std::string& word : query_words) {
      query.question += (query.question.empty() ? "" : " ") + word;
    }
    query.limit = symbols_limit;
    return tarnwick::cli::run_symbols(query, std::cout, std::cerr);
  }

  if (outline_command->parsed()) {
    status = tarnwick::cli::run_outline(view, std::cout, std::cerr);
  } else if (links_command->parsed()) {
    status = tarnwick::cli::run_links(view, std::cout, std::cerr);
  } else if (index_command->parsed()) {
    if (index.paths.empty()) index.paths.push_back(".");
    index.selection.git_ignores = !no_ignore;
    if (const auto error = tarnwick::cli::configure_index(index_config, index.selection)) {
      return configuration_error(*error);
    }
    const bool reads_stdin =
        std::find(index.paths.begin(), index.paths.end(), "-") != index.paths.end();
    if (reads_stdin && !index.selection.stdin_path && !index.selection.prefix) {
      return usage_error("reading '-' (stdin) needs --stdin-path or --prefix to name it",
                         std::nullopt);
    }
    if (index.selection.prefix &&
        (index.paths.size() != 1 || std::filesystem::is_directory(index.paths[0]))) {
      return usage_error("--prefix needs a single file argument", std::nullopt);
    }
    std::ios::sync_with_stdio(false);
    return tarnwick::cli::run_index(index, std::cout, std::cerr);
  }
  if (!tarnwick::cli::flushed(std::cout, std::cerr)) return 1;
  return status;
}
