#include "lsp/session.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <iostream>
#include <mutex>
#include <thread>

#include "lsp/transport.hpp"
#include "lsp/uri.hpp"

namespace tarnwick::lsp {

namespace detail {

// What replies, progress and the reader thread share with the session.
struct Connection {
  explicit Connection(int output) : writer(output) {}

  MessageWriter writer;
  TaskQueue main;  // messages and tasks for the main thread
  std::atomic<bool> progress_supported = false;

  std::mutex log_mutex;  // one log line at a time on stderr
  std::mutex mutex;
  // Requests not yet answered, by their id as JSON text. Guarded by mutex.
  std::unordered_map<std::string, std::weak_ptr<PendingRequest>> in_flight;
  // What to do with the answers to the server's requests, by id. Guarded by mutex.
  std::unordered_map<std::int64_t, Session::AnswerHandler> answer_handlers;
  std::int64_t next_id = 1;        // guarded by mutex
  std::int64_t next_progress = 1;  // guarded by mutex
};

struct PendingRequest {
  PendingRequest(Connection& connection, Json id) : connection(connection), id(std::move(id)) {}

  // Sends the answer unless one was sent; false when one was.
  bool answer(const Json& message) { return answer_body(serialize(message)); }
  bool answer_body(std::string_view body) {
    if (done.exchange(true)) return false;
    connection.writer.write_body(body);
    const std::lock_guard lock(connection.mutex);
    const auto entry = connection.in_flight.find(id.dump());
    if (entry != connection.in_flight.end() && entry->second.lock().get() == this) {
      connection.in_flight.erase(entry);
    }
    return true;
  }
  bool fail(int code, std::string message) {
    return answer(error_message(id, {code, std::move(message)}));
  }

  Connection& connection;
  const Json id;
  std::atomic<bool> done = false;
  std::atomic<bool> cancelled = false;
};

struct ProgressState {
  ProgressState(Connection& connection, std::string token, std::string title)
      : connection(connection), token(std::move(token)), title(std::move(title)) {}

  void send(Json value) {
    connection.writer.write(
        notification_message("$/progress", {{"token", token}, {"value", std::move(value)}}));
  }
  // The client's answer to the request that creates the progress.
  void created(bool ok) {
    const std::lock_guard lock(mutex);
    status = ok ? Status::created : Status::refused;
    if (!ok) return;
    send({{"kind", "begin"}, {"title", title}, {"percentage", 0}});
    if (last_report) send(std::move(*last_report));
    if (ended) send({{"kind", "end"}, {"message", end_message}});
  }
  void report(Json value) {
    const std::lock_guard lock(mutex);
    if (ended || status == Status::refused) return;
    if (status == Status::created)
      send(std::move(value));
    else
      last_report = std::move(value);
  }
  void end(std::string message) {
    const std::lock_guard lock(mutex);
    if (ended) return;
    ended = true;
    if (status == Status::created)
      send({{"kind", "end"}, {"message", message}});
    else
      end_message = std::move(message);
  }

  enum class Status { waiting, created, refused };
  Connection& connection;
  const std::string token;
  const std::string title;
  std::mutex mutex;
  Status status = Status::waiting;  // guarded by mutex, as are the members below
  std::optional<Json> last_report;  // made while waiting
  bool ended = false;
  std::string end_message;
};

}  // namespace detail

namespace {

std::vector<WorkspaceFolder> folders_of(const Json& list, const Json& root_uri,
                                        const Json& root_path) {
  std::vector<WorkspaceFolder> folders;
  const auto add = [&](std::string uri, std::string name) {
    std::optional<std::filesystem::path> path = path_of_uri(uri);
    if (!path) return;
    if (name.empty()) name = path->filename().string();
    folders.push_back({std::move(uri), std::move(*path), std::move(name)});
  };
  if (list.is_array()) {
    for (const Json& folder : list) {
      const Json& uri = member(folder, {"uri"});
      const Json& name = member(folder, {"name"});
      if (uri.is_string()) add(uri, name.is_string() ? name.get<std::string>() : "");
    }
  } else if (root_uri.is_string()) {
    add(root_uri, "");
  } else if (root_path.is_string()) {
    add(uri_of_path(root_path.get<std::string>()), "");
  }
  return folders;
}

}  // namespace

Reply& Reply::operator=(Reply&& other) noexcept {
  if (this != &other) {
    drop();
    pending_ = std::move(other.pending_);
  }
  return *this;
}

Reply::~Reply() {
  drop();
}

// The internal error is sent from the main thread, after the task that dropped the reply:
// a handler that threw has then been answered with the error its exception deserves.
void Reply::drop() {
  if (!pending_ || pending_->done) return;
  pending_->connection.main.push([pending = pending_] {
    pending->fail(error_code::INTERNAL_ERROR, "the server dropped the request without an answer");
  });
  pending_.reset();
}

void Reply::result(Json value) {
  if (pending_) pending_->answer(response_message(pending_->id, std::move(value)));
}

void Reply::result_text(std::string_view json) {
  if (!pending_) return;
  std::string body = R"({"jsonrpc":"2.0","id":)" + serialize(pending_->id) + R"(,"result":)";
  body.append(json).append("}");
  pending_->answer_body(body);
}

void Reply::error(int code, std::string message) {
  if (pending_) pending_->fail(code, std::move(message));
}

bool Reply::cancelled() const {
  return pending_ && pending_->cancelled;
}

Progress::~Progress() {
  if (state_) state_->end({});
}

void Progress::report(std::string message, std::optional<unsigned> percentage) {
  if (!state_) return;
  Json value = {{"kind", "report"}, {"message", std::move(message)}};
  if (percentage) value["percentage"] = std::min(*percentage, 100u);
  state_->report(std::move(value));
}

void Progress::end(std::string message) {
  if (state_) state_->end(std::move(message));
}

Session::Session(int input, int output, ServerInfo info, unsigned workers)
    : info_(std::move(info)),
      input_(input),
      connection_(std::make_unique<detail::Connection>(output)),
      workers_(std::make_unique<WorkerPool>(
          workers > 0 ? workers : std::max(1u, std::thread::hardware_concurrency()),
          [this](const char* what) {
            log(MessageType::error, std::string("a background job failed: ") + what);
          })) {}

Session::~Session() {
  stopping_ = true;
  workers_.reset();
  connection_->main.close();
}

void Session::on_request(std::string method, RequestHandler handler) {
  request_handlers_[std::move(method)] = std::move(handler);
}

void Session::on_notification(std::string method, NotificationHandler handler) {
  notification_handlers_[std::move(method)] = std::move(handler);
}

void Session::add_capabilities(const Json& part) {
  capabilities_.merge_patch(part);
}

void Session::on_initialized(std::function<void()> listener) {
  initialized_listeners_.push_back(std::move(listener));
}

void Session::on_settings(std::function<void(const Json&)> listener) {
  settings_listeners_.push_back(std::move(listener));
}

void Session::on_folders(
    std::function<void(const std::vector<WorkspaceFolder>&, const std::vector<WorkspaceFolder>&)>
        listener) {
  folder_listeners_.push_back(std::move(listener));
}

void Session::watch_files(std::vector<std::string> globs,
                          std::function<void(const std::vector<FileChange>&)> listener) {
  watched_globs_.insert(watched_globs_.end(), globs.begin(), globs.end());
  watch_listeners_.push_back(std::move(listener));
}

void Session::on_document(std::function<void(DocumentEvent, const OpenDocument&)> listener) {
  document_listeners_.push_back(std::move(listener));
}

int Session::run() {
  int wake[2];
  if (::pipe2(wake, O_CLOEXEC) != 0) {
    log(MessageType::error, "cannot make a pipe to stop the reader thread");
    return 1;
  }
  std::thread reader([this, &wake] { read_messages(wake[0]); });
  while (lifecycle_ != Lifecycle::exited) {
    std::optional<Task> task = connection_->main.pop();
    if (!task) break;
    try {
      (*task)();
    } catch (const std::exception& error) {
      log(MessageType::error, std::string("a task failed: ") + error.what());
    }
  }
  stopping_ = true;
  [[maybe_unused]] const ssize_t woken = ::write(wake[1], "x", 1);
  reader.join();
  connection_->main.close();
  ::close(wake[0]);
  ::close(wake[1]);
  return exit_status_;
}

void Session::end(std::string_view why) {
  exit_status_ = lifecycle_ == Lifecycle::shut_down ? 0 : 1;
  lifecycle_ = Lifecycle::exited;
  if (exit_status_ != 0)
    log(MessageType::warning, "the session ended without shutdown: " + std::string(why));
}

void Session::read_messages(int wake) {
  MessageReader reader(input_, wake);
  while (std::optional<Frame> frame = reader.next()) {
    if (frame->error) {
      connection_->writer.write(error_message(nullptr, {error_code::PARSE_ERROR, *frame->error}));
      log(MessageType::warning, "skipped a malformed message: " + *frame->error);
      continue;
    }
    auto read = read_message(frame->body);
    if (const auto* invalid = std::get_if<InvalidMessage>(&read)) {
      connection_->writer.write(error_message(invalid->id, invalid->error));
      log(MessageType::warning, "skipped a malformed message: " + invalid->error.message);
      if (invalid->error.code == error_code::PARSE_ERROR) reader.resynchronise();
      continue;
    }
    Message message = std::get<Message>(std::move(read));
    if (message.kind == Message::Kind::notification && message.method == "$/cancelRequest") {
      // Answered at once, on this thread, so that a busy main thread or a job that checks
      // Reply::cancelled() learns of it as early as can be.
      const Json& id = member(message.params, {"id"});
      std::shared_ptr<detail::PendingRequest> pending;
      {
        const std::lock_guard lock(connection_->mutex);
        const auto entry = connection_->in_flight.find(id.dump());
        if (entry != connection_->in_flight.end()) pending = entry->second.lock();
      }
      if (pending) {
        pending->cancelled = true;
        pending->fail(error_code::REQUEST_CANCELLED, "the request was cancelled");
      }
      continue;
    }
    std::shared_ptr<detail::PendingRequest> pending;
    if (message.kind == Message::Kind::request) {
      pending = std::make_shared<detail::PendingRequest>(*connection_, message.id);
      const std::lock_guard lock(connection_->mutex);
      connection_->in_flight[message.id.dump()] = pending;
    }
    connection_->main.push([this, message = std::move(message), pending]() mutable {
      dispatch(std::move(message), std::move(pending));
    });
  }
  connection_->main.push([this] {
    if (lifecycle_ != Lifecycle::exited) end("the end of the input");
  });
}

void Session::dispatch(Message message, std::shared_ptr<detail::PendingRequest> pending) {
  switch (message.kind) {
    case Message::Kind::response:
      handle_response(message);
      return;
    case Message::Kind::notification:
      try {
        handle_notification(message);
      } catch (const std::exception& error) {
        log(MessageType::warning, "cannot handle " + message.method + " (" + error.what() +
                                      "): " + serialize(message.params).substr(0, 200));
      }
      return;
    case Message::Kind::request:
      if (pending->done) return;  // cancelled while queued
      try {
        handle_request(message, Reply(pending));
      } catch (const Json::exception& error) {
        pending->fail(error_code::INVALID_PARAMS, error.what());
      } catch (const std::exception& error) {
        pending->fail(error_code::INTERNAL_ERROR, error.what());
      }
      return;
  }
}

void Session::handle_request(const Message& message, Reply reply) {
  if (lifecycle_ == Lifecycle::starting && message.method != "initialize") {
    reply.error(error_code::SERVER_NOT_INITIALIZED, "the server is not initialized");
  } else if (lifecycle_ == Lifecycle::shut_down) {
    reply.error(error_code::INVALID_REQUEST, "the server is shut down");
  } else if (message.method == "initialize") {
    if (lifecycle_ != Lifecycle::starting) {
      reply.error(error_code::INVALID_REQUEST, "the server is already initialized");
    } else {
      initialize(message.params, std::move(reply));
    }
  } else if (message.method == "shutdown") {
    lifecycle_ = Lifecycle::shut_down;
    reply.result(nullptr);
  } else if (const auto handler = request_handlers_.find(message.method);
             handler != request_handlers_.end()) {
    handler->second(message.params, std::move(reply));
  } else {
    reply.error(error_code::METHOD_NOT_FOUND, "no method " + message.method);
  }
}

void Session::handle_notification(Message& message) {
  const std::string& method = message.method;
  if (method == "exit") {
    end("exit");
    return;
  }
  if (lifecycle_ != Lifecycle::running) return;
  Json& params = message.params;
  if (method == "initialized") {
    initialized();
  } else if (method == "textDocument/didOpen") {
    open_document(params);
  } else if (method == "textDocument/didChange") {
    change_document(params);
  } else if (method == "textDocument/didClose") {
    close_document(params);
  } else if (method == "textDocument/didSave") {
    const auto found = documents_.find(params.at("textDocument").at("uri").get<std::string>());
    if (found != documents_.end()) announce(DocumentEvent::saved, found->second);
  } else if (method == "workspace/didChangeConfiguration") {
    if (member(client_capabilities_, {"workspace", "configuration"}) == true) {
      pull_settings();
    } else if (const Json& section = member(params, {"settings", info_.settings_section});
               section.is_object()) {
      apply_settings(section);
    }
  } else if (method == "workspace/didChangeWorkspaceFolders") {
    const Json& event = params.at("event");
    change_folders(folders_of(event.at("added"), nullptr, nullptr),
                   folders_of(event.at("removed"), nullptr, nullptr));
  } else if (method == "workspace/didChangeWatchedFiles") {
    watched_files_changed(params);
  } else if (const auto handler = notification_handlers_.find(method);
             handler != notification_handlers_.end()) {
    handler->second(params);
  }
}

void Session::handle_response(const Message& message) {
  if (!message.id.is_number_integer()) return;
  AnswerHandler handler;
  {
    const std::lock_guard lock(connection_->mutex);
    const auto found = connection_->answer_handlers.find(message.id.get<std::int64_t>());
    if (found == connection_->answer_handlers.end()) return;
    handler = std::move(found->second);
    connection_->answer_handlers.erase(found);
  }
  handler(message.result, message.error);
}

void Session::initialize(const Json& params, Reply reply) {
  if (const Json& capabilities = member(params, {"capabilities"}); capabilities.is_object()) {
    client_capabilities_ = capabilities;
  }
  const Json& encodings = member(client_capabilities_, {"general", "positionEncodings"});
  if (encodings.is_array() &&
      std::find(encodings.begin(), encodings.end(), "utf-8") != encodings.end()) {
    encoding_ = PositionEncoding::utf8;
  }
  connection_->progress_supported =
      member(client_capabilities_, {"window", "workDoneProgress"}) == true;
  folders_ = folders_of(member(params, {"workspaceFolders"}), member(params, {"rootUri"}),
                        member(params, {"rootPath"}));
  if (const Json& options = member(params, {"initializationOptions"}); options.is_object()) {
    initialization_options_ = options;
    apply_settings(Json::object());
  }

  Json capabilities = {
      {"positionEncoding", encoding_name(encoding_)},
      {"textDocumentSync",
       {{"openClose", true}, {"change", 2}, {"save", {{"includeText", false}}}}},
      {"workspace", {{"workspaceFolders", {{"supported", true}, {"changeNotifications", true}}}}}};
  capabilities.merge_patch(capabilities_);
  lifecycle_ = Lifecycle::running;
  reply.result({{"capabilities", std::move(capabilities)},
                {"serverInfo", {{"name", info_.name}, {"version", info_.version}}}});
}

void Session::initialized() {
  if (initialized_) return;
  initialized_ = true;
  for (const auto& listener : folder_listeners_) listener(folders_, {});
  for (const auto& listener : initialized_listeners_) listener();
  if (!watch_listeners_.empty() &&
      member(client_capabilities_, {"workspace", "didChangeWatchedFiles", "dynamicRegistration"}) ==
          true) {
    Json watchers = Json::array();
    for (const std::string& glob : watched_globs_) watchers.push_back({{"globPattern", glob}});
    request("client/registerCapability",
            {{"registrations",
              {{{"id", "watched-files"},
                {"method", "workspace/didChangeWatchedFiles"},
                {"registerOptions", {{"watchers", std::move(watchers)}}}}}}},
            [this](const Json&, const std::optional<ResponseError>& error) {
              if (error)
                log(MessageType::warning, "the client watches no files: " + error->message);
            });
  }
  if (member(client_capabilities_, {"workspace", "configuration"}) == true) pull_settings();
}

void Session::pull_settings() {
  request("workspace/configuration", {{"items", {{{"section", info_.settings_section}}}}},
          [this](const Json& result, const std::optional<ResponseError>& error) {
            // Without the client's settings, the initialization options hold.
            if (error) log(MessageType::warning, "the client gave no settings: " + error->message);
            const bool given =
                !error && result.is_array() && !result.empty() && result[0].is_object();
            apply_settings(given ? result[0] : Json::object());
          });
}

void Session::apply_settings(const Json& pulled) {
  settings_ = initialization_options_;
  settings_.merge_patch(pulled);
  for (const auto& listener : settings_listeners_) listener(settings_);
}

void Session::change_folders(std::vector<WorkspaceFolder> added,
                             std::vector<WorkspaceFolder> removed) {
  std::erase_if(folders_, [&](const WorkspaceFolder& folder) {
    return std::find(removed.begin(), removed.end(), folder) != removed.end();
  });
  folders_.insert(folders_.end(), added.begin(), added.end());
  for (const auto& listener : folder_listeners_) listener(added, removed);
}

void Session::watched_files_changed(const Json& params) {
  std::vector<FileChange> changes;
  for (const Json& change : params.at("changes")) {
    std::string uri = change.at("uri").get<std::string>();
    const int type = change.at("type").get<int>();
    std::optional<std::filesystem::path> path = path_of_uri(uri);
    if (!path || type < 1 || type > 3) continue;
    changes.push_back({std::move(uri), std::move(*path), static_cast<FileChange::Type>(type)});
  }
  for (const auto& listener : watch_listeners_) listener(changes);
}

void Session::open_document(Json& params) {
  Json& item = params.at("textDocument");
  OpenDocument document;
  document.uri = item.at("uri").get<std::string>();
  document.path = path_of_uri(document.uri);
  document.language_id = member(item, {"languageId"}).is_string()
                             ? item.at("languageId").get<std::string>()
                             : std::string();
  document.version =
      member(item, {"version"}).is_number_integer() ? item.at("version").get<std::int64_t>() : 0;
  // The text is taken, not copied: it may be large.
  document.text = std::make_shared<const Text>(std::move(item.at("text").get_ref<std::string&>()));
  const auto [entry, _] = documents_.insert_or_assign(document.uri, std::move(document));
  announce(DocumentEvent::opened, entry->second);
}

void Session::change_document(const Json& params) {
  const Json& identifier = params.at("textDocument");
  const auto found = documents_.find(identifier.at("uri").get<std::string>());
  if (found == documents_.end()) {
    log(MessageType::warning,
        "a change to a document that is not open: " + identifier.at("uri").get<std::string>());
    return;
  }
  OpenDocument& document = found->second;
  // Every change is read before any is made, so that a malformed one changes nothing.
  const auto changes = params.at("contentChanges").get<std::vector<ContentChange>>();
  std::shared_ptr<const Text> text = document.text;
  for (const ContentChange& change : changes) {
    text = std::make_shared<const Text>(text->changed(change, encoding_));
  }
  document.text = std::move(text);
  const Json& version = member(identifier, {"version"});
  document.version =
      version.is_number_integer() ? version.get<std::int64_t>() : document.version + 1;
  announce(DocumentEvent::changed, document);
}

void Session::close_document(const Json& params) {
  const auto found = documents_.find(params.at("textDocument").at("uri").get<std::string>());
  if (found == documents_.end()) return;
  announce(DocumentEvent::closed, found->second);
  documents_.erase(found);
}

void Session::announce(DocumentEvent event, const OpenDocument& document) {
  for (const auto& listener : document_listeners_) listener(event, document);
}

const OpenDocument* Session::document(std::string_view uri) const {
  const auto found = documents_.find(std::string(uri));
  return found == documents_.end() ? nullptr : &found->second;
}

std::string Session::uri_of(const std::filesystem::path& path) const {
  for (const auto& [uri, document] : documents_) {
    if (document.path == path) return uri;
  }
  return uri_of_path(path);
}

void Session::post(Task task) {
  connection_->main.push(std::move(task));
}

void Session::run_in_background(Task job) {
  if (workers_) workers_->run(std::move(job));
}

void Session::notify(std::string_view method, Json params) {
  connection_->writer.write(notification_message(method, std::move(params)));
}

void Session::request(std::string_view method, Json params, AnswerHandler on_answer) {
  std::int64_t id = 0;
  {
    const std::lock_guard lock(connection_->mutex);
    id = connection_->next_id++;
    connection_->answer_handlers.emplace(id, std::move(on_answer));
  }
  connection_->writer.write(request_message(id, method, std::move(params)));
}

void Session::publish_diagnostics(std::string_view uri, std::optional<std::int64_t> version,
                                  Json diagnostics) {
  Json params = {{"uri", uri}, {"diagnostics", std::move(diagnostics)}};
  if (version) params["version"] = *version;
  notify("textDocument/publishDiagnostics", std::move(params));
}

void Session::log(MessageType type, std::string_view message) {
  static constexpr std::string_view LEVELS[] = {"", "error", "warning", "info", "log"};
  {
    const std::lock_guard lock(connection_->log_mutex);
    std::cerr << info_.name << ": " << LEVELS[static_cast<int>(type)] << ": " << message
              << std::endl;
  }
  notify("window/logMessage", {{"type", static_cast<int>(type)}, {"message", message}});
}

Progress Session::begin_progress(std::string title) {
  if (!connection_->progress_supported) return Progress(nullptr);
  std::string token;
  {
    const std::lock_guard lock(connection_->mutex);
    token = info_.name + "/progress/" + std::to_string(connection_->next_progress++);
  }
  auto state = std::make_shared<detail::ProgressState>(*connection_, token, std::move(title));
  request(
      "window/workDoneProgress/create", {{"token", token}},
      [state](const Json&, const std::optional<ResponseError>& error) { state->created(!error); });
  return Progress(std::move(state));
}

}  // namespace tarnwick::lsp
