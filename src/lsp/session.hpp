// A language server's session with its client: messages read on a thread of their own and
// handled in order on the main thread (the one that calls run()), background jobs on a pool of
// workers that post their results back, the protocol's lifecycle, settings, workspace folders,
// watched files and the texts of the open documents.
//
// Features register handlers and listeners before run() and touch their state on the main
// thread only: handlers, listeners, tasks given to post() and answers to the server's requests
// all run there. A feature answers a request at once or keeps its Reply and answers later,
// typically from a task that a background job posted:
//
//   session.on_request("textDocument/documentSymbol", [&](const Json& params, Reply reply) {
//     const OpenDocument* document =
//         session.document(params.at("textDocument").at("uri").get<std::string>());
//     if (!document) return reply.error(error_code::REQUEST_FAILED, "the document is not open");
//     session.run_in_background([&, text = document->text, reply = std::move(reply)]() mutable {
//       Json symbols = ...;  // read `text` on the worker
//       session.post([reply = std::move(reply), symbols = std::move(symbols)]() mutable {
//         reply.result(std::move(symbols));
//       });
//     });
//   });
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "lsp/positions.hpp"
#include "lsp/protocol.hpp"
#include "lsp/threads.hpp"

namespace tarnwick::lsp {

namespace detail {
struct Connection;
struct PendingRequest;
struct ProgressState;
}  // namespace detail

// What the server says of itself.
struct ServerInfo {
  std::string name;
  std::string version;
  // The section of the client's settings the server reads ("tarnwick" for settings written
  // as { "tarnwick": { ... } }).
  std::string settings_section;
};

struct WorkspaceFolder {
  std::string uri;
  std::filesystem::path path;
  std::string name;
  bool operator==(const WorkspaceFolder&) const = default;
};

// A file that changed outside the editor.
struct FileChange {
  enum class Type { created = 1, changed = 2, deleted = 3 };
  std::string uri;
  std::filesystem::path path;
  Type type = Type::changed;
};

// A document the client has open, as the session keeps it.
struct OpenDocument {
  std::string uri;                            // as the client wrote it
  std::optional<std::filesystem::path> path;  // for a file: URI
  std::string language_id;
  std::int64_t version = 0;
  // Immutable and shared: a background job may keep the text it was handed while the
  // document changes.
  std::shared_ptr<const Text> text;
};

enum class DocumentEvent { opened, changed, saved, closed };

enum class MessageType { error = 1, warning = 2, info = 3, log = 4 };

// The answer owed to one request. Move-only. Answered at most once: later answers, and any
// answer after the client cancelled the request, do nothing. One dropped without an answer
// answers with an internal error, so that the client never waits for nothing. Any thread may
// answer or ask whether the request was cancelled.
class Reply {
 public:
  Reply(Reply&&) noexcept = default;
  Reply& operator=(Reply&&) noexcept;
  ~Reply();

  void result(Json value);
  // The result as JSON text already written, for answers of thousands of values.
  void result_text(std::string_view json);
  void error(int code, std::string message);
  // Whether the client cancelled the request (it has been answered so): a job may stop.
  bool cancelled() const;

 private:
  friend class Session;
  explicit Reply(std::shared_ptr<detail::PendingRequest> pending) : pending_(std::move(pending)) {}
  void drop();

  std::shared_ptr<detail::PendingRequest> pending_;  // shared with the session's table
};

// Work-done progress shown by the client: begun when created, ended when end() is called or
// when it is destroyed. Created only for a client that supports it; otherwise it does nothing.
// Any thread may report. Reports made before the client created the progress are sent once it
// has (the last of them).
class Progress {
 public:
  Progress(Progress&&) noexcept = default;
  Progress& operator=(Progress&&) noexcept = default;
  ~Progress();

  void report(std::string message, std::optional<unsigned> percentage = std::nullopt);
  void end(std::string message = {});

 private:
  friend class Session;
  explicit Progress(std::shared_ptr<detail::ProgressState> state) : state_(std::move(state)) {}
  std::shared_ptr<detail::ProgressState> state_;
};

class Session {
 public:
  using RequestHandler = std::function<void(const Json& params, Reply reply)>;
  using NotificationHandler = std::function<void(const Json& params)>;
  using AnswerHandler =
      std::function<void(const Json& result, const std::optional<ResponseError>& error)>;

  // Reads messages from `input` and writes them to `output` (file descriptors it does not
  // own); `workers` background threads (0: one per core).
  Session(int input, int output, ServerInfo info, unsigned workers = 0);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Registration, before run(). A handler that throws Json::exception (params of the wrong
  // shape) answers an invalid-params error; another exception, an internal error.
  void on_request(std::string method, RequestHandler handler);
  void on_notification(std::string method, NotificationHandler handler);
  // Merges a part into the capabilities that `initialize` answers with.
  void add_capabilities(const Json& part);
  // After `initialized`, once the first folders were handed to on_folders' listeners.
  void on_initialized(std::function<void()> listener);
  // The settings: `initializationOptions` at initialize, then the client's settings section,
  // pulled with workspace/configuration after `initialized` and at every
  // workspace/didChangeConfiguration (or taken from that notification when the client cannot
  // be asked), merged over them.
  void on_settings(std::function<void(const Json& settings)> listener);
  // Folders added to and removed from the workspace: the first ones after `initialized`, from
  // initialize's workspaceFolders (or rootUri, or rootPath).
  void on_folders(std::function<void(const std::vector<WorkspaceFolder>& added,
                                     const std::vector<WorkspaceFolder>& removed)>
                      listener);
  // Files changed outside the editor, for clients that can watch files matching `globs`
  // (registered dynamically after `initialized`).
  void watch_files(std::vector<std::string> globs,
                   std::function<void(const std::vector<FileChange>&)> listener);
  // Documents opened, changed, saved and closed (still there while closed listeners run).
  void on_document(std::function<void(DocumentEvent, const OpenDocument&)> listener);

  // Handles messages until `exit` or the end of the input: 0 after shutdown then exit, 1 when
  // the session ended without shutdown. From then on stopping() is true and nothing more is
  // posted to the main thread; the session waits for jobs still running when it is destroyed.
  int run();

  // Main thread only.
  const Json& client_capabilities() const { return client_capabilities_; }
  PositionEncoding encoding() const { return encoding_; }
  const Json& settings() const { return settings_; }
  const std::vector<WorkspaceFolder>& folders() const { return folders_; }
  const OpenDocument* document(std::string_view uri) const;
  const std::unordered_map<std::string, OpenDocument>& documents() const { return documents_; }
  // The URI the client uses for a path: that of its open document there, else a file: URI.
  std::string uri_of(const std::filesystem::path& path) const;

  // Any thread.
  // Runs a task on the main thread, after the messages and tasks already queued.
  void post(Task task);
  // Runs a job on a worker.
  void run_in_background(Task job);
  // True once the session is ending: long jobs should stop.
  bool stopping() const { return stopping_.load(); }
  void notify(std::string_view method, Json params);
  // Sends a request to the client; its answer is handed to `on_answer` on the main thread.
  void request(std::string_view method, Json params, AnswerHandler on_answer);
  void publish_diagnostics(std::string_view uri, std::optional<std::int64_t> version,
                           Json diagnostics);
  // A line on stderr, and a window/logMessage.
  void log(MessageType type, std::string_view message);
  // Begins work-done progress (when the client supports it).
  Progress begin_progress(std::string title);

 private:
  void dispatch(Message message, std::shared_ptr<detail::PendingRequest> pending);
  void handle_request(const Message& message, Reply reply);
  void handle_notification(Message& message);
  void handle_response(const Message& message);
  void initialize(const Json& params, Reply reply);
  void initialized();
  void pull_settings();
  void apply_settings(const Json& pulled);
  void change_folders(std::vector<WorkspaceFolder> added, std::vector<WorkspaceFolder> removed);
  void open_document(Json& params);
  void change_document(const Json& params);
  void close_document(const Json& params);
  void announce(DocumentEvent event, const OpenDocument& document);
  void watched_files_changed(const Json& params);
  void read_messages(int wake);
  void end(std::string_view why);

  enum class Lifecycle { starting, running, shut_down, exited };

  ServerInfo info_;
  int input_;
  std::unique_ptr<detail::Connection> connection_;  // shared with replies and progress
  std::unique_ptr<WorkerPool> workers_;
  std::atomic<bool> stopping_ = false;

  std::unordered_map<std::string, RequestHandler> request_handlers_;
  std::unordered_map<std::string, NotificationHandler> notification_handlers_;
  Json capabilities_;
  std::vector<std::function<void()>> initialized_listeners_;
  std::vector<std::function<void(const Json&)>> settings_listeners_;
  std::vector<
      std::function<void(const std::vector<WorkspaceFolder>&, const std::vector<WorkspaceFolder>&)>>
      folder_listeners_;
  std::vector<std::string> watched_globs_;
  std::vector<std::function<void(const std::vector<FileChange>&)>> watch_listeners_;
  std::vector<std::function<void(DocumentEvent, const OpenDocument&)>> document_listeners_;

  // Main thread only.
  Lifecycle lifecycle_ = Lifecycle::starting;
  bool initialized_ = false;
  int exit_status_ = 1;
  Json client_capabilities_ = Json::object();
  PositionEncoding encoding_ = PositionEncoding::utf16;
  Json initialization_options_ = Json::object();
  Json settings_ = Json::object();
  std::vector<WorkspaceFolder> folders_;
  std::unordered_map<std::string, OpenDocument> documents_;
};

}  // namespace tarnwick::lsp
