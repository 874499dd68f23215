#include "lsp/repository.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include "check/check.hpp"
#include "check/report.hpp"
#include "lsp/completion.hpp"
#include "lsp/edits.hpp"
#include "lsp/json_text.hpp"
#include "lsp/outline.hpp"
#include "lsp/targets.hpp"
#include "lsp/uri.hpp"
#include "lsp/workspace_symbols.hpp"
#include "repo/links.hpp"
#include "repo/selection.hpp"
#include "text/json.hpp"
#include "text/nearest.hpp"

namespace tarnwick::lsp {

namespace fs = std::filesystem;

namespace {

// At most this many workspace symbols are answered, the best: more than a person reads.
constexpr std::size_t MOST_SYMBOLS = 256;
// Outlines kept for hovers, of the documents last hovered over.
constexpr std::size_t MOST_OUTLINES = 64;

// What a client may set, in initializationOptions or its settings section: the codes of
// problems not shown, and whether [[wiki links]] are read.
struct Settings {
  bool wiki = false;
  std::vector<check::Code> ignored;
  bool operator==(const Settings&) const = default;
};

Settings settings_of(const Json& json, std::vector<std::string>& complaints) {
  Settings settings;
  if (const Json& wiki = member(json, {"wiki"}); wiki.is_boolean())
    settings.wiki = wiki.get<bool>();
  const Json& ignore = member(json, {"ignore"});
  if (!ignore.is_array()) return settings;
  for (const Json& name : ignore) {
    const std::string text = name.is_string() ? name.get<std::string>() : name.dump();
    if (const auto code = check::code_named(text)) {
      settings.ignored.push_back(*code);
    } else {
      const auto near = text::nearest(text, check::code_names());
      complaints.push_back("'" + text + "' in the setting \"ignore\" is not a problem code" +
                           (near ? " (did you mean '" + *near + "'?)" : ""));
    }
  }
  return settings;
}

// Where a file outside every workspace folder belongs: the repository that holds it (the
// nearest folder above it with a ".git"), else its own folder; of the file system's root or
// the home folder, only the entries themselves are read, not all that lies below them.
struct Home {
  fs::path root;
  bool shallow = false;
};
Home home_of(const fs::path& file) {
  std::error_code error;
  for (fs::path at = file.parent_path(); !at.empty(); at = at.parent_path()) {
    if (fs::exists(at / ".git", error)) return {at};
    if (at == at.parent_path()) break;
  }
  const fs::path folder = file.parent_path();
  const char* home = std::getenv("HOME");
  return {folder, folder == folder.root_path() || (home && fs::equivalent(folder, home, error))};
}

// A folder's own entries, and none below them.
repo::Tree entries_of(const fs::path& folder) {
  repo::Tree tree;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    std::error_code status_error;
    (it->is_directory(status_error) ? tree.directories : tree.files)
        .push_back(it->path().filename().string());
  }
  if (error) tree.errors.push_back({folder.string(), error.message()});
  std::sort(tree.files.begin(), tree.files.end());
  std::sort(tree.directories.begin(), tree.directories.end());
  return tree;
}

fs::path normal(const fs::path& path) {
  return fs::absolute(path).lexically_normal();
}

// A folder of the workspace and what the server knows of it.
struct Folder {
  std::string uri;
  fs::path root;           // absolute and normal
  bool shallow = false;    // only its own entries are read
  std::uint64_t load = 0;  // the current read of the folder: an older one's end is dropped
  bool ready = false;
  repo::Workspace workspace;
  SymbolIndex symbols;
  std::vector<Task> waiting;  // until it is ready
  // The problems of documents as last computed, by path, and the paths whose problems the
  // client was last shown with some.
  std::unordered_map<std::string, std::vector<check::Problem>> problems;
  std::unordered_set<std::string> shown;
};

// An open document, read again as it is typed.
struct Reading {
  std::int64_t read = -1;  // the version in the workspace
  bool in_flight = false;
  std::vector<Task> waiting;  // until the open version is read
};

// The texts of documents as the workspace read them, with their lines, and their URIs: what an
// answer needs to place what it names.
class Lines {
 public:
  Lines(const Folder& folder, const Session& session) : folder_(folder), session_(session) {}
  const Text* of(const std::string& path) {
    const auto found = texts_.find(path);
    if (found != texts_.end()) return &found->second;
    const repo::Document* document = folder_.workspace.document(path);
    if (!document) return nullptr;
    return &texts_.emplace(path, Text(document->text)).first->second;
  }
  const std::string& uri(const std::string& path) {
    const auto found = uris_.find(path);
    if (found != uris_.end()) return found->second;
    return uris_.emplace(path, session_.uri_of(folder_.root / path)).first->second;
  }
  Range range(const std::string& path, gfm::Span span) {
    const Text* text = of(path);
    return text ? text->range(span.begin, span.end, session_.encoding()) : Range{};
  }
  // The range of a span whose first line is known, found from the lines it stands on alone:
  // for answers that name one place in each of many documents.
  Range range_on(const std::string& path, std::int64_t line, gfm::Span span) const {
    const repo::Document* document = folder_.workspace.document(path);
    if (!document || line < 1) return {};
    const std::string_view text = document->text;
    const auto position = [&](std::size_t offset, std::int64_t at_line) {
      const std::size_t before =
          offset == 0 ? std::string_view::npos : text.find_last_of("\r\n", offset - 1);
      const std::size_t start = before == std::string_view::npos ? 0 : before + 1;
      return Position{static_cast<std::uint32_t>(at_line - 1),
                      units_between(text, start, offset, session_.encoding())};
    };
    std::int64_t breaks = 0;  // "\n", "\r\n" or "\r"
    for (std::size_t at = span.begin; at < span.end; ++at) {
      if (text[at] == '\n' ||
          (text[at] == '\r' && (at + 1 == text.size() || text[at + 1] != '\n'))) {
        ++breaks;
      }
    }
    return {position(span.begin, line), position(span.end, line + breaks)};
  }

 private:
  const Folder& folder_;
  const Session& session_;
  std::unordered_map<std::string, Text> texts_;
  std::unordered_map<std::string, std::string> uris_;
};

// The edits grouped by document, as the JSON text of a WorkspaceEdit.
std::string workspace_edit(const std::vector<TextEdit>& edits, Folder& folder,
                           const Session& session) {
  std::map<std::string, std::vector<const TextEdit*>> by_path;
  for (const TextEdit& edit : edits) by_path[edit.path].push_back(&edit);
  Lines lines(folder, session);
  const bool document_changes = member(session.client_capabilities(),
                                       {"workspace", "workspaceEdit", "documentChanges"}) == true;
  std::string json = document_changes ? R"({"documentChanges":[)" : R"({"changes":{)";
  for (auto group = by_path.begin(); group != by_path.end(); ++group) {
    const std::string& uri = lines.uri(group->first);
    if (group != by_path.begin()) json += ',';
    if (document_changes) {
      const OpenDocument* open = session.document(uri);
      json += R"({"textDocument":{"uri":)";
      text::append_json_string(json, uri);
      json.append(R"(,"version":)")
          .append(open ? std::to_string(open->version) : "null")
          .append(R"(},"edits":[)");
    } else {
      text::append_json_string(json, uri);
      json += ":[";
    }
    for (const TextEdit* edit : group->second) {
      if (edit != group->second.front()) json += ',';
      append_text_edit(json, lines.range(group->first, edit->span), edit->text);
    }
    json += document_changes ? "]}" : "]";
  }
  json += document_changes ? "]}" : "}}";
  return json;
}

}  // namespace

struct RepositoryFeature::State {
  explicit State(Session& session) : session(session) {}

  Session& session;
  Settings settings;
  bool initialized = false;      // the session is: settings that come now are the client's
  bool settings_pulled = false;  // the client's settings came at least once
  std::vector<std::unique_ptr<Folder>> folders;
  std::unordered_map<std::string, Reading> readings;  // by URI
  // Outlines of documents for hovers, each with the document it was made from.
  std::map<std::string, std::pair<repo::SharedDocument, std::shared_ptr<const DocumentOutline>>>
      outlines;

  // Folders.

  Folder* folder_at(const fs::path& file, std::string& path) {
    const fs::path location = normal(file);
    Folder* best = nullptr;
    for (const auto& folder : folders) {
      const fs::path relative = location.lexically_relative(folder->root);
      if (relative.empty() || *relative.begin() == "..") continue;
      if (!best || folder->root.native().size() > best->root.native().size()) {
        best = folder.get();
        path = relative == "." ? "" : relative.generic_string();
      }
    }
    return best;
  }

  // The folder that holds a document, and its path there; a file outside every folder brings
  // its repository's folder in.
  Folder* folder_of(std::string_view uri, std::string& path) {
    const auto file = path_of_uri(uri);
    if (!file) return nullptr;
    if (Folder* folder = folder_at(*file, path)) return folder;
    const Home home = home_of(normal(*file));
    add_folder(session.uri_of(home.root), home.root, home.shallow);
    return folder_at(*file, path);
  }

  void add_folder(std::string uri, const fs::path& root, bool shallow = false) {
    const fs::path normal_root = normal(root);
    for (const auto& folder : folders) {
      if (folder->root == normal_root) return;
    }
    auto folder = std::make_unique<Folder>();
    folder->uri = std::move(uri);
    folder->root = normal_root;
    folder->shallow = shallow;
    folders.push_back(std::move(folder));
    load(*folders.back());
  }

  void remove_folder(const fs::path& root) {
    const fs::path normal_root = normal(root);
    std::erase_if(folders, [&](const std::unique_ptr<Folder>& folder) {
      if (folder->root != normal_root) return false;
      for (const std::string& path : folder->shown) {
        session.publish_diagnostics(session.uri_of(folder->root / path), std::nullopt,
                                    Json::array());
      }
      return true;
    });
  }

  Folder* folder_by_root(const fs::path& root, std::uint64_t load) {
    for (const auto& folder : folders) {
      if (folder->root == root && folder->load == load) return folder.get();
    }
    return nullptr;
  }

  // Reads a folder's files in the background, then takes in the open documents' texts.
  void load(Folder& folder) {
    folder.ready = false;
    const std::uint64_t load = ++folder.load;
    if (awaiting_settings()) return;  // read when they come
    const fs::path root = folder.root;
    const repo::WorkspaceOptions options{.wiki = settings.wiki};
    auto progress =
        std::make_shared<Progress>(session.begin_progress("Reading " + root.filename().string()));
    session.run_in_background([this, root, load, options, progress, shallow = folder.shallow] {
      // Every file is a link target: hidden ones and those .ignore files leave out too.
      repo::SelectionOptions everything;
      everything.hidden = true;
      everything.ignore_files = false;
      const repo::Tree tree = shallow ? entries_of(root) : repo::list_tree(root, everything);
      progress->report(std::to_string(tree.files.size()) + " files");
      std::vector<repo::ReadError> errors = tree.errors;
      auto workspace = std::make_shared<repo::Workspace>(repo::Workspace::load(
          root, tree, {}, options, std::max(1u, std::thread::hardware_concurrency()), errors));
      auto symbols = std::make_shared<SymbolIndex>();
      for (const std::string& path : workspace->document_paths()) {
        symbols->put(path, *workspace->document(path));
      }
      session.post([this, root, load, workspace, symbols, errors, progress] {
        for (const repo::ReadError& error : errors) {
          session.log(MessageType::warning, repo::describe(error));
        }
        progress->end();
        if (Folder* folder = folder_by_root(root, load)) {
          loaded(*folder, std::move(*workspace), std::move(*symbols));
        }
      });
    });
  }

  void loaded(Folder& folder, repo::Workspace workspace, SymbolIndex symbols) {
    folder.workspace = std::move(workspace);
    folder.symbols = std::move(symbols);
    folder.problems.clear();
    folder.ready = true;
    // The open documents' texts are what the editor shows: they are read again.
    for (const auto& [uri, document] : session.documents()) {
      std::string path;
      if (folder_of(uri, path) == &folder) {
        readings[uri].read = -1;
        read(document);
      }
    }
    std::vector<Task> waiting = std::move(folder.waiting);
    for (Task& task : waiting) task();
  }

  void when_ready(Folder& folder, Task task) {
    if (folder.ready) {
      task();
    } else {
      folder.waiting.push_back(std::move(task));
    }
  }

  // Open documents.

  void read(const OpenDocument& document) {
    std::string path;
    Folder* folder = folder_of(document.uri, path);
    if (!folder || !folder->ready) return;  // read when the folder is
    Reading& reading = readings[document.uri];
    if (reading.in_flight) return;  // read again when that read ends
    reading.in_flight = true;
    // The document as the workspace last read it: most edits read only a part of it again.
    session.run_in_background([this, uri = document.uri, version = document.version,
                               text = document.text, root = folder->root, load = folder->load, path,
                               before = folder->workspace.shared_document(path),
                               options = repo::WorkspaceOptions{.wiki = settings.wiki}] {
      repo::SharedDocument fresh = before ? repo::reread_document(*before, text->bytes(), options)
                                          : repo::read_document(text->bytes(), options);
      session.post([this, uri, version, root, load, path, fresh = std::move(fresh)] {
        Reading& reading = readings[uri];
        reading.in_flight = false;
        Folder* folder = folder_by_root(root, load);
        if (!folder) return;
        change(*folder, path, [&] { return folder->workspace.put_document(path, fresh); });
        folder->symbols.put(path, *fresh);
        reading.read = version;
        publish(*folder, path, /*always=*/true);
        const OpenDocument* open = session.document(uri);
        if (open && open->version != version) {
          read(*open);
        } else {
          std::vector<Task> waiting = std::move(reading.waiting);
          for (Task& task : waiting) task();
        }
      });
    });
  }

  // Runs a task once the open document at `uri` (if it is open) is read as the editor has it.
  void when_current(const std::string& uri, Task task) {
    const OpenDocument* open = session.document(uri);
    const auto reading = readings.find(uri);
    if (!open || (reading != readings.end() && reading->second.read == open->version &&
                  !reading->second.in_flight)) {
      task();
      return;
    }
    readings[uri].waiting.push_back(std::move(task));
  }

  void document_event(DocumentEvent event, const OpenDocument& document) {
    if (event == DocumentEvent::opened || event == DocumentEvent::changed) {
      read(document);
      return;
    }
    if (event != DocumentEvent::closed) return;
    // The file as it is on disk takes the place of the editor's text.
    readings.erase(document.uri);
    std::string path;
    Folder* folder = folder_of(document.uri, path);
    if (!folder) return;
    if (folder->shown.erase(path)) {
      session.publish_diagnostics(document.uri, std::nullopt, Json::array());
    }
    files_changed(*folder, {{path, FileChange::Type::changed}});
  }

  // Files changed outside the editor (or an editor's document closed): read again from disk in
  // the background, unless the editor has them open.
  void files_changed(Folder& folder,
                     std::vector<std::pair<std::string, FileChange::Type>> changes) {
    std::erase_if(changes, [&](const auto& change) {
      return change.second != FileChange::Type::deleted &&
             session.document(session.uri_of(folder.root / change.first));
    });
    if (changes.empty()) return;
    const repo::WorkspaceOptions options{.wiki = settings.wiki};
    session.run_in_background([this, root = folder.root, load = folder.load, changes, options] {
      struct Found {
        std::string path;
        enum class Kind { gone, folder, file, document } kind;
        repo::SharedDocument document;
      };
      std::vector<Found> found;
      for (const auto& [path, type] : changes) {
        const fs::path location = root / path;
        std::error_code error;
        const fs::file_status status = fs::status(location, error);
        if (type == FileChange::Type::deleted || !fs::exists(status)) {
          found.push_back({path, Found::Kind::gone, nullptr});
        } else if (fs::is_directory(status)) {
          found.push_back({path, Found::Kind::folder, nullptr});
        } else if (!repo::is_markdown(repo::name_of(path))) {
          found.push_back({path, Found::Kind::file, nullptr});
        } else {
          std::string reason;
          auto bytes = repo::read_file(location, reason);
          if (!bytes) {
            session.log(MessageType::warning,
                        repo::describe(repo::ReadError{location.string(), reason}));
            found.push_back({path, Found::Kind::file, nullptr});
          } else {
            found.push_back(
                {path, Found::Kind::document, repo::read_document(std::move(*bytes), options)});
          }
        }
      }
      session.post([this, root, load, found = std::move(found)] {
        Folder* folder = folder_by_root(root, load);
        if (!folder || !folder->ready) return;
        for (const Found& file : found) {
          if (file.kind != Found::Kind::gone &&
              session.document(session.uri_of(root / file.path))) {
            continue;  // opened meanwhile: the editor's text counts
          }
          change(*folder, file.path, [&] {
            switch (file.kind) {
              case Found::Kind::gone:
                folder->symbols.remove(file.path);
                return folder->workspace.remove(file.path);
              case Found::Kind::folder:
                return folder->workspace.put_directory(file.path);
              case Found::Kind::file:
                folder->symbols.remove(file.path);
                return folder->workspace.put_file(file.path);
              case Found::Kind::document:
                folder->symbols.put(file.path, *file.document);
                return folder->workspace.put_document(file.path, file.document);
            }
            return std::vector<std::string>{};
          });
        }
      });
    });
  }

  // Diagnostics.

  // The problems of a document, as the client is shown them.
  std::vector<check::Problem> problems_of(const Folder& folder, const std::string& path) const {
    std::size_t links = 0;
    std::vector<check::Problem> problems = check::check_document(folder.workspace, path, links);
    std::erase_if(problems, [&](const check::Problem& problem) {
      return std::find(settings.ignored.begin(), settings.ignored.end(), problem.code) !=
             settings.ignored.end();
    });
    for (check::Problem& problem : problems) check::suggest(folder.workspace, problem);
    return problems;
  }

  const std::vector<check::Problem>& known_problems(Folder& folder, const std::string& path) {
    const auto found = folder.problems.find(path);
    if (found != folder.problems.end()) return found->second;
    return folder.problems.emplace(path, problems_of(folder, path)).first->second;
  }

  // Makes a change to the folder's workspace, then shows the client the problems of every
  // document whose problems it changed: those the change breaks or mends, open or not.
  template <typename Apply>
  void change(Folder& folder, const std::string& path, Apply apply) {
    // What the documents that may be affected showed before: those depending on the path, on
    // the folders a new file brings, and on what a folder holds.
    std::set<std::string> before_change{path};
    const auto add_dependents = [&](std::string_view of) {
      for (std::string& dependent : folder.workspace.documents_depending_on(of)) {
        before_change.insert(std::move(dependent));
      }
    };
    add_dependents(path);
    for (std::string_view at = repo::parent_of(path);
         !at.empty() && !folder.workspace.has_directory(at); at = repo::parent_of(at)) {
      add_dependents(at);
    }
    if (folder.workspace.has_directory(path)) {
      for (const std::string& file : folder.workspace.files()) {
        if (!file.starts_with(path + "/")) continue;
        before_change.insert(file);
        add_dependents(file);
      }
    }
    std::map<std::string, std::vector<check::Problem>> before;
    for (const std::string& document : before_change) {
      if (folder.workspace.document(document)) before[document] = known_problems(folder, document);
    }
    const std::vector<std::string> affected = apply();
    for (const auto& [document, problems] : before) {
      if (!folder.workspace.document(document)) {
        folder.problems.erase(document);
        if (folder.shown.erase(document)) {
          session.publish_diagnostics(session.uri_of(folder.root / document), std::nullopt,
                                      Json::array());
        }
      }
    }
    for (const std::string& document : affected) {
      std::vector<check::Problem> problems = problems_of(folder, document);
      const auto old = before.find(document);
      const bool changed = old == before.end() || old->second != problems;
      folder.problems[document] = std::move(problems);
      if (changed && document != path) publish(folder, document, false);
    }
  }

  // Shows the client a document's problems: always, or when they changed for a document it was
  // shown with problems or that has some now.
  void publish(Folder& folder, const std::string& path, bool always) {
    const std::vector<check::Problem>& problems = known_problems(folder, path);
    const bool was_shown = folder.shown.contains(path);
    if (!always && problems.empty() && !was_shown) return;
    const std::string uri = session.uri_of(folder.root / path);
    Lines lines(folder, session);
    const Text* text = lines.of(path);
    Json diagnostics = Json::array();
    for (const check::Problem& problem : problems) {
      if (text) diagnostics.push_back(diagnostic(problem, *text));
    }
    const OpenDocument* open = session.document(uri);
    const auto reading = readings.find(uri);
    std::optional<std::int64_t> version;
    if (open && reading != readings.end() && reading->second.read >= 0) {
      version = reading->second.read;
    }
    session.publish_diagnostics(uri, version, std::move(diagnostics));
    if (problems.empty()) {
      folder.shown.erase(path);
    } else {
      folder.shown.insert(path);
    }
  }

  Json diagnostic(const check::Problem& problem, const Text& text) const {
    const PositionEncoding encoding = session.encoding();
    const gfm::Span place = !problem.target_span.empty() ? problem.target_span : problem.span;
    Range range;
    if (!place.empty()) {
      range = text.range(place.begin, place.end, encoding);
    } else if (problem.line >= 1 && static_cast<std::size_t>(problem.line) <= text.line_count()) {
      const std::size_t at = text.line_start(static_cast<std::size_t>(problem.line) - 1) +
                             static_cast<std::size_t>(std::max<std::int64_t>(problem.column, 1)) -
                             1;
      range = text.range(at, at, encoding);
    }
    Json diagnostic = {{"range", range},
                       {"severity", check::info(problem.code).site_generator ? 2 : 1},
                       {"code", check::info(problem.code).name},
                       {"source", "tarnwick-md"},
                       {"message", check::message_with_suggestion(problem)}};
    if (problem.suggestion && !problem.target_span.empty()) {
      diagnostic["data"] = {
          {"suggestion", *problem.suggestion},
          {"range", text.range(problem.target_span.begin, problem.target_span.end, encoding)}};
    }
    return diagnostic;
  }

  // Whether the client's settings, which say how folders are read, are still to come: they
  // are asked for after `initialized`, when the client can be asked.
  bool awaiting_settings() const {
    return !settings_pulled &&
           member(session.client_capabilities(), {"workspace", "configuration"}) == true;
  }

  void settings_changed(const Json& json) {
    std::vector<std::string> complaints;
    Settings changed = settings_of(json, complaints);
    for (const std::string& complaint : complaints) session.log(MessageType::warning, complaint);
    const bool first = initialized && !settings_pulled;
    if (initialized) settings_pulled = true;
    if (changed == settings && !first) return;
    const bool reread = changed.wiki != settings.wiki || first;
    settings = std::move(changed);
    for (const auto& folder : folders) {
      if (reread) {
        load(*folder);
        continue;
      }
      folder->problems.clear();
      for (const auto& [uri, document] : session.documents()) {
        std::string path;
        if (folder_of(uri, path) == folder.get() && folder->ready) publish(*folder, path, true);
      }
    }
  }

  // Requests about a place of a document: answered once its folder is ready and the document
  // is read as the editor has it, with the folder, the path and the offset of the position.
  using PlaceHandler =
      std::function<void(Folder&, const std::string& path, std::size_t offset, Reply reply)>;
  void at_place(const Json& params, Reply reply, PlaceHandler handler) {
    const std::string uri = params.at("textDocument").at("uri").get<std::string>();
    const Position position = params.at("position").get<Position>();
    std::string path;
    Folder* folder = folder_of(uri, path);
    if (!folder) {
      reply.result(nullptr);
      return;
    }
    when_ready(*folder, [this, folder, uri, path, position, reply = std::move(reply),
                         handler = std::move(handler)]() mutable {
      when_current(uri, [this, folder, uri, path, position, reply = std::move(reply),
                         handler = std::move(handler)]() mutable {
        if (reply.cancelled()) return;
        const repo::Document* document = folder->workspace.document(path);
        if (!document) {
          reply.result(nullptr);
          return;
        }
        const OpenDocument* open = session.document(uri);
        const std::size_t offset = open ? open->text->offset(position, session.encoding())
                                        : Text(document->text).offset(position, session.encoding());
        handler(*folder, path, offset, std::move(reply));
      });
    });
  }

  // Requests about a whole document.
  using DocumentHandler = std::function<void(Folder&, const std::string& path, Reply reply)>;
  void on_document_request(const Json& params, Reply reply, DocumentHandler handler) {
    const std::string uri = params.at("textDocument").at("uri").get<std::string>();
    std::string path;
    Folder* folder = folder_of(uri, path);
    if (!folder) {
      reply.result(nullptr);
      return;
    }
    when_ready(*folder, [this, folder, uri, path, reply = std::move(reply),
                         handler = std::move(handler)]() mutable {
      when_current(
          uri, [folder, path, reply = std::move(reply), handler = std::move(handler)]() mutable {
            if (!reply.cancelled()) handler(*folder, path, std::move(reply));
          });
    });
  }

  static Json location(Lines& lines, const std::string& path, gfm::Span span) {
    return {{"uri", lines.uri(path)}, {"range", lines.range(path, span)}};
  }

  // Where a link leads, as a location: its heading's text, or the start of the file.
  std::optional<Json> lead_location(Folder& folder, Lines& lines, const std::string& from,
                                    const gfm::Link& link) const {
    const auto lead = lead_of(folder.workspace, from, link);
    if (!lead) return std::nullopt;
    gfm::Span span;
    if (lead->heading) {
      span = folder.workspace.document(lead->path)->read.headings[*lead->heading].text_span;
    }
    return location(lines, lead->path, span);
  }

  void definition(Folder& folder, const std::string& path, std::size_t offset, Reply reply) {
    const repo::Document& document = *folder.workspace.document(path);
    const AtOffset at = what_is_at(document, offset);
    Lines lines(folder, session);
    Json locations = Json::array();
    const auto add_lead = [&](const gfm::Link& link) {
      if (auto found = lead_location(folder, lines, path, link)) locations.push_back(*found);
    };
    switch (at.kind) {
      case AtOffset::Kind::link:
        add_lead(document.read.links[at.index]);
        break;
      case AtOffset::Kind::reference:
      case AtOffset::Kind::definition: {
        const std::string& label = at.kind == AtOffset::Kind::reference
                                       ? document.read.references[at.index].label
                                       : document.read.definitions[at.index].label;
        const auto definition =
            std::find_if(document.read.definitions.begin(), document.read.definitions.end(),
                         [&](const gfm::Definition& d) { return d.label == label; });
        if (definition == document.read.definitions.end()) break;
        for (const gfm::Link& link : document.read.links) {
          if (link.span == definition->span) add_lead(link);
        }
        if (at.kind == AtOffset::Kind::reference) {
          locations.push_back(location(lines, path, definition->span));
        }
        break;
      }
      case AtOffset::Kind::heading:
      case AtOffset::Kind::nothing:
        break;
    }
    reply.result(std::move(locations));
  }

  void references(Folder& folder, const std::string& path, std::size_t offset,
                  bool include_declaration, Reply reply) {
    const repo::Document& document = *folder.workspace.document(path);
    const AtOffset at = what_is_at(document, offset);
    std::vector<Place> places;
    const auto add = [&](std::vector<Place> more) {
      places.insert(places.end(), std::make_move_iterator(more.begin()),
                    std::make_move_iterator(more.end()));
    };
    if (at.kind == AtOffset::Kind::heading) {
      const gfm::Heading& heading = document.read.headings[at.index];
      add(links_to(folder.workspace, path, Fragments::named, at.index));
      // A document's title stands for the document.
      if (at.index == 0 && heading.level == 1) {
        add(links_to(folder.workspace, path, Fragments::none));
      }
      if (include_declaration) places.push_back({path, heading.text_span});
    } else if (at.kind == AtOffset::Kind::link || at.kind == AtOffset::Kind::reference) {
      const gfm::Link* link = nullptr;
      if (at.kind == AtOffset::Kind::link) {
        link = &document.read.links[at.index];
      } else if (const auto definition =
                     definition_of(document.read, document.read.references[at.index])) {
        for (const gfm::Link& candidate : document.read.links) {
          if (candidate.span == document.read.definitions[*definition].span) link = &candidate;
        }
      }
      const auto lead = link ? lead_of(folder.workspace, path, *link) : std::nullopt;
      if (lead && lead->fragment) {
        if (lead->heading)
          add(links_to(folder.workspace, lead->path, Fragments::named, lead->heading));
      } else if (lead) {
        add(links_to(folder.workspace, lead->path, Fragments::any));
      }
    } else if (at.kind == AtOffset::Kind::definition) {
      const std::string& label = document.read.definitions[at.index].label;
      for (const gfm::Reference& reference : document.read.references) {
        if (reference.label == label) places.push_back({path, reference.span});
      }
    } else {
      add(links_to(folder.workspace, path, Fragments::any));
    }
    Lines lines(folder, session);
    std::string locations = "[";
    for (const Place& place : places) {
      if (locations.size() > 1) locations += ',';
      append_location(locations, lines.uri(place.path), lines.range(place.path, place.span));
    }
    reply.result_text(locations + "]");
  }

  // What a rename at an offset renames: a heading or a reference label, and its text's span.
  struct Renamed {
    AtOffset at;
    gfm::Span span;
    std::string label;
  };
  std::optional<Renamed> renamed_at(const repo::Document& document, std::size_t offset) const {
    const AtOffset at = what_is_at(document, offset);
    switch (at.kind) {
      case AtOffset::Kind::heading: {
        const gfm::Heading& heading = document.read.headings[at.index];
        if (heading.text_span.empty()) return std::nullopt;
        return Renamed{at, heading.text_span, {}};
      }
      case AtOffset::Kind::definition:
        return Renamed{at, document.read.definitions[at.index].label_span,
                       document.read.definitions[at.index].label};
      case AtOffset::Kind::reference: {
        const gfm::Reference& reference = document.read.references[at.index];
        if (!reference.label_span.contains(offset)) return std::nullopt;
        return Renamed{at, reference.label_span, reference.label};
      }
      default:
        return std::nullopt;
    }
  }

  void prepare_rename(Folder& folder, const std::string& path, std::size_t offset, Reply reply) {
    const repo::Document& document = *folder.workspace.document(path);
    const auto renamed = renamed_at(document, offset);
    if (!renamed) {
      reply.error(error_code::REQUEST_FAILED, "only a heading or a reference label can be renamed");
      return;
    }
    Lines lines(folder, session);
    const Text* text = lines.of(path);
    reply.result(
        {{"range", text->range(renamed->span.begin, renamed->span.end, session.encoding())},
         {"placeholder",
          document.text.substr(renamed->span.begin, renamed->span.end - renamed->span.begin)}});
  }

  void rename(Folder& folder, const std::string& path, std::size_t offset, std::string name,
              Reply reply) {
    const repo::Document& document = *folder.workspace.document(path);
    const auto renamed = renamed_at(document, offset);
    if (!renamed) {
      reply.error(error_code::REQUEST_FAILED, "only a heading or a reference label can be renamed");
      return;
    }
    std::vector<TextEdit> edits;
    if (renamed->at.kind == AtOffset::Kind::heading) {
      Refusal refusal;
      edits = rename_heading(folder.workspace, path, renamed->at.index, name, refusal);
      if (edits.empty()) {
        reply.error(error_code::REQUEST_FAILED, refusal.reason);
        return;
      }
    } else {
      if (name.empty() || name.find_first_of("[]\r\n") != std::string::npos) {
        reply.error(error_code::REQUEST_FAILED,
                    "a reference label is one line without unescaped brackets");
        return;
      }
      edits = rename_label(document, path, renamed->label, name);
    }
    reply.result_text(workspace_edit(edits, folder, session));
  }

  void will_rename_files(const Json& params, Reply reply) {
    // Moves by folder; the client waits for the edits before it moves the files.
    std::map<Folder*, std::vector<std::pair<std::string, std::string>>> moves;
    for (const Json& file : params.at("files")) {
      std::string from, to;
      Folder* folder = folder_of(file.at("oldUri").get<std::string>(), from);
      const auto new_file = path_of_uri(file.at("newUri").get<std::string>());
      if (!folder || !new_file || folder_at(*new_file, to) != folder || from.empty() ||
          to.empty()) {
        continue;
      }
      moves[folder].emplace_back(std::move(from), std::move(to));
    }
    if (moves.empty()) {
      reply.result(nullptr);
      return;
    }
    // One folder's edits: a client renames within one workspace folder at a time.
    Folder* folder = moves.begin()->first;
    when_ready(
        *folder, [this, folder, list = moves.begin()->second, reply = std::move(reply)]() mutable {
          if (reply.cancelled()) return;
          const std::vector<TextEdit> edits = move_files(folder->workspace, list);
          reply.result_text(edits.empty() ? "null" : workspace_edit(edits, *folder, session));
        });
  }

  void workspace_symbols(const std::string& query, Reply reply) {
    std::vector<Folder*> waiting_for;
    for (const auto& folder : folders) {
      if (!folder->ready) waiting_for.push_back(folder.get());
    }
    if (!waiting_for.empty()) {
      when_ready(*waiting_for.front(), [this, query, reply = std::move(reply)]() mutable {
        workspace_symbols(query, std::move(reply));
      });
      return;
    }
    std::string symbols = "[";
    for (const auto& folder : folders) {
      Lines lines(*folder, session);
      for (const SymbolMatch& match : folder->symbols.search(query, MOST_SYMBOLS)) {
        const gfm::Heading& heading =
            folder->workspace.document(match.path)->read.headings[match.heading];
        if (symbols.size() > 1) symbols += ',';
        symbols += R"({"name":)";
        text::append_json_string(symbols, match.name);
        symbols += R"(,"kind":15,"containerName":)";  // 15: String, what editors show for text
        text::append_json_string(symbols, match.container);
        symbols += R"(,"location":)";
        append_location(symbols, lines.uri(match.path),
                        lines.range_on(match.path, heading.line, heading.text_span));
        symbols += '}';
      }
    }
    reply.result_text(symbols + "]");
  }

  void hover(Folder& folder, const std::string& path, std::size_t offset, Reply reply) {
    const repo::Document& document = *folder.workspace.document(path);
    const AtOffset at = what_is_at(document, offset);
    if (at.kind != AtOffset::Kind::link) {
      reply.result(nullptr);
      return;
    }
    const gfm::Link& link = document.read.links[at.index];
    const auto lead = lead_of(folder.workspace, path, link);
    const repo::SharedDocument target =
        lead ? folder.workspace.shared_document(lead->path) : nullptr;
    if (!target) {
      reply.result(nullptr);
      return;
    }
    const std::int64_t line =
        lead->heading ? target->read.headings[*lead->heading].line : std::int64_t{0};
    Lines lines(folder, session);
    const Text* text = lines.of(path);
    const Json range = text->range(link.span.begin, link.span.end, session.encoding());
    auto shared_reply = std::make_shared<Reply>(std::move(reply));
    with_outline(
        lead->path, target,
        [line, range, target_path = lead->path, shared_reply](const DocumentOutline& outline) {
          Reply& reply = *shared_reply;
          if (reply.cancelled()) return;
          // The section of the heading, or the document's first.
          const Symbol* section = nullptr;
          for (const Symbol& candidate : outline.sections) {
            if (line == 0 || candidate.start_line == line) {
              section = &candidate;
              break;
            }
          }
          std::string markdown = "`" + target_path + "`";
          if (section) {
            markdown = "**" + section->signature + "**  \n" + markdown;
            if (section->docstring) markdown += "\n\n" + *section->docstring;
          }
          reply.result(
              {{"contents", {{"kind", "markdown"}, {"value", markdown}}}, {"range", range}});
        });
  }

  // Runs `then` with the outline of a document, made on a worker unless it was kept.
  void with_outline(const std::string& path, const repo::SharedDocument& document,
                    std::function<void(const DocumentOutline&)> then) {
    const auto kept = outlines.find(path);
    if (kept != outlines.end() && kept->second.first == document) {
      then(*kept->second.second);
      return;
    }
    session.run_in_background([this, path, document, then = std::move(then)]() mutable {
      auto outline = std::make_shared<const DocumentOutline>(outline_of(document->text));
      session.post([this, path, document, outline, then = std::move(then)] {
        if (outlines.size() >= MOST_OUTLINES) outlines.erase(outlines.begin());
        outlines[path] = {document, outline};
        then(*outline);
      });
    });
  }

  void document_links(Folder& folder, const std::string& path, Reply reply) {
    const repo::Document& document = *folder.workspace.document(path);
    Lines lines(folder, session);
    const Text* text = lines.of(path);
    Json links = Json::array();
    for (const gfm::Link& link : document.read.links) {
      const auto lead = lead_of(folder.workspace, path, link);
      const gfm::Span place = link_place(link);
      if (!lead || place.empty()) continue;
      Json entry = {{"range", text->range(place.begin, place.end, session.encoding())},
                    {"target", session.uri_of(folder.root / lead->path)}};
      if (lead->heading) {
        entry["tooltip"] =
            folder.workspace.document(lead->path)->read.headings[*lead->heading].text;
      }
      links.push_back(std::move(entry));
    }
    reply.result(std::move(links));
  }

  void code_actions(const Json& params, Reply reply) {
    const std::string uri = params.at("textDocument").at("uri").get<std::string>();
    Json actions = Json::array();
    for (const Json& diagnostic : member(params, {"context", "diagnostics"})) {
      const Json& data = member(diagnostic, {"data"});
      if (!data.contains("suggestion") || !data.contains("range")) continue;
      const std::string suggestion = data.at("suggestion").get<std::string>();
      actions.push_back(
          {{"title", "Replace with \"" + suggestion + "\""},
           {"kind", "quickfix"},
           {"diagnostics", Json::array({diagnostic})},
           {"isPreferred", true},
           {"edit",
            {{"changes",
              {{uri, Json::array({{{"range", data.at("range")}, {"newText", suggestion}}})}}}}}});
    }
    reply.result(std::move(actions));
  }

  void completion(Folder& folder, const std::string& path, const std::string& uri,
                  std::size_t offset, Reply reply) {
    const OpenDocument* open = session.document(uri);
    const std::shared_ptr<const Text> lines =
        open ? open->text : std::make_shared<const Text>(folder.workspace.document(path)->text);
    Json items = Json::array();
    for (const Completion& found : complete(folder.workspace, path, lines->bytes(), offset)) {
      // The protocol's kinds for a file, a folder, a heading, a label and a page.
      static constexpr int KINDS[] = {17, 19, 18, 18, 17};
      items.push_back(
          {{"label", found.text},
           {"kind", KINDS[static_cast<int>(found.kind)]},
           {"detail", found.detail},
           {"textEdit",
            {{"range", lines->range(found.span.begin, found.span.end, session.encoding())},
             {"newText", found.text}}}});
    }
    reply.result({{"isIncomplete", false}, {"items", std::move(items)}});
  }
};

RepositoryFeature::RepositoryFeature(Session& session) : state_(std::make_unique<State>(session)) {
  State& state = *state_;
  session.add_capabilities(
      {{"definitionProvider", true},
       {"referencesProvider", true},
       {"renameProvider", {{"prepareProvider", true}}},
       {"workspaceSymbolProvider", true},
       {"hoverProvider", true},
       {"documentLinkProvider", {{"resolveProvider", false}}},
       {"codeActionProvider", {{"codeActionKinds", {"quickfix"}}}},
       {"completionProvider", {{"triggerCharacters", {"(", "#", "/", "[", "^"}}}},
       {"workspace",
        {{"fileOperations",
          {{"willRename",
            {{"filters",
              {{{"pattern", {{"glob", "**/*.{md,markdown}"}, {"matches", "file"}}}},
               {{"pattern", {{"glob", "**"}, {"matches", "folder"}}}}}}}}}}}}});

  session.on_settings([&state](const Json& settings) { state.settings_changed(settings); });
  session.on_initialized([&state] { state.initialized = true; });
  session.on_folders([&state](const std::vector<WorkspaceFolder>& added,
                              const std::vector<WorkspaceFolder>& removed) {
    for (const WorkspaceFolder& folder : removed) state.remove_folder(folder.path);
    for (const WorkspaceFolder& folder : added) state.add_folder(folder.uri, folder.path);
  });
  session.on_document([&state](DocumentEvent event, const OpenDocument& document) {
    state.document_event(event, document);
  });
  session.watch_files({"**/*"}, [&state](const std::vector<FileChange>& changes) {
    std::map<Folder*, std::vector<std::pair<std::string, FileChange::Type>>> by_folder;
    for (const FileChange& change : changes) {
      std::string path;
      if (Folder* folder = state.folder_at(change.path, path); folder && !path.empty()) {
        by_folder[folder].emplace_back(std::move(path), change.type);
      }
    }
    for (auto& [folder, list] : by_folder) state.files_changed(*folder, std::move(list));
  });

  // Requests about a place of a document that a member of the state answers.
  using PlaceAnswer = void (State::*)(Folder&, const std::string&, std::size_t, Reply);
  const auto on_place_request = [&session, &state](const char* method, PlaceAnswer answer) {
    session.on_request(method, [&state, answer](const Json& params, Reply reply) {
      state.at_place(params, std::move(reply),
                     [&state, answer](Folder& folder, const std::string& path, std::size_t offset,
                                      Reply reply) {
                       (state.*answer)(folder, path, offset, std::move(reply));
                     });
    });
  };
  on_place_request("textDocument/definition", &State::definition);
  on_place_request("textDocument/prepareRename", &State::prepare_rename);
  on_place_request("textDocument/hover", &State::hover);
  session.on_request("textDocument/references", [&state](const Json& params, Reply reply) {
    const bool include_declaration = member(params, {"context", "includeDeclaration"}) == true;
    state.at_place(params, std::move(reply),
                   [&state, include_declaration](Folder& folder, const std::string& path,
                                                 std::size_t offset, Reply reply) {
                     state.references(folder, path, offset, include_declaration, std::move(reply));
                   });
  });
  session.on_request("textDocument/rename", [&state](const Json& params, Reply reply) {
    std::string name = params.at("newName").get<std::string>();
    state.at_place(params, std::move(reply),
                   [&state, name = std::move(name)](Folder& folder, const std::string& path,
                                                    std::size_t offset, Reply reply) {
                     state.rename(folder, path, offset, name, std::move(reply));
                   });
  });
  session.on_request("workspace/willRenameFiles", [&state](const Json& params, Reply reply) {
    state.will_rename_files(params, std::move(reply));
  });
  session.on_request("workspace/symbol", [&state](const Json& params, Reply reply) {
    state.workspace_symbols(params.at("query").get<std::string>(), std::move(reply));
  });
  session.on_request("textDocument/documentLink", [&state](const Json& params, Reply reply) {
    state.on_document_request(params, std::move(reply),
                              [&state](Folder& folder, const std::string& path, Reply reply) {
                                state.document_links(folder, path, std::move(reply));
                              });
  });
  session.on_request("textDocument/codeAction", [&state](const Json& params, Reply reply) {
    state.code_actions(params, std::move(reply));
  });
  session.on_request("textDocument/completion", [&state](const Json& params, Reply reply) {
    const std::string uri = params.at("textDocument").at("uri").get<std::string>();
    state.at_place(
        params, std::move(reply),
        [&state, uri](Folder& folder, const std::string& path, std::size_t offset, Reply reply) {
          state.completion(folder, path, uri, offset, std::move(reply));
        });
  });
}

RepositoryFeature::~RepositoryFeature() = default;

}  // namespace tarnwick::lsp
