// The language server's protocol layer: framing, positions and edits, and the session's
// promises to the features built on it (replies never lost, cancellation, settings, folders,
// watched files, progress, open documents), driven over a socket as a client would.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

#include "lsp/positions.hpp"
#include "lsp/session.hpp"
#include "lsp/transport.hpp"
#include "lsp/uri.hpp"

namespace tarnwick::lsp {
namespace {

constexpr const char* ERROR = "<error>";

// Every frame of a stream fed whole, and fed a byte at a time: bodies, or ERROR.
std::vector<std::string> frames_of(std::string_view stream, bool bytewise) {
  FrameDecoder decoder;
  std::vector<std::string> frames;
  const auto drain = [&] {
    while (auto frame = decoder.next()) frames.push_back(frame->error ? ERROR : frame->body);
  };
  if (bytewise) {
    for (const char c : stream) {
      decoder.feed(std::string_view(&c, 1));
      drain();
    }
  } else {
    decoder.feed(stream);
    drain();
  }
  return frames;
}

std::string framed(std::string_view body) {
  return "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
}

TEST(Framing, ReadsBodiesAndResynchronisesAfterMalformedHeaders) {
  const std::string good = framed(R"({"a":1})");
  struct Case {
    std::string stream;
    std::vector<std::string> frames;
  };
  const std::vector<Case> cases = {
      {good + framed("[]"), {R"({"a":1})", "[]"}},
      {"content-LENGTH:2\r\nContent-Type: application/vscode-jsonrpc; charset=utf-8\r\n\r\n{}",
       {"{}"}},
      {"Content-Length: 2\n\n{}", {"{}"}},  // line feeds alone
      {"\r\n\r\n" + good, {R"({"a":1})"}},  // blank lines between messages
      {"Content-Length: 0\r\n\r\n", {""}},  // an empty body is the JSON's problem
      {"Content-Length:  2 \r\nX-Other: y\r\n\r\n{}", {"{}"}},
      {"Garbage\r\n\r\n" + good, {ERROR, R"({"a":1})"}},
      {"Content-Type: x\r\n\r\n{}\r\n" + good, {ERROR, R"({"a":1})"}},
      {"Content-Length: abc\r\n\r\n" + good, {ERROR, R"({"a":1})"}},
      {"Content-Length: -2\r\n\r\n" + good, {ERROR, R"({"a":1})"}},
      {"Content-Length: 99999999999\r\n\r\n{}\r\n" + good, {ERROR, R"({"a":1})"}},
      {"Content-Length: 999999999999999999999999999\r\n\r\n" + good, {ERROR, R"({"a":1})"}},
      {"Content-Length: 2\r\nContent-Length: 3\r\n\r\n{}\r\n" + good, {ERROR, R"({"a":1})"}},
      {std::string(5000, 'x') + "\r\n" + good, {ERROR, R"({"a":1})"}},
      {"Content-Length: 10\r\n\r\n{}", {}},  // the rest of the body is still to come
  };
  for (const auto& [stream, frames] : cases) {
    EXPECT_EQ(frames_of(stream, false), frames) << stream.substr(0, 100);
    EXPECT_EQ(frames_of(stream, true), frames) << "fed bytewise: " << stream.substr(0, 100);
  }
}

TEST(Framing, SkipsTheRestOfABodyShorterThanItsLength) {
  FrameDecoder decoder;
  decoder.feed(R"(Content-Length: 5)"
               "\r\n\r\n"
               R"({"a":1})"
               "\r\n" +
               framed("{}"));
  EXPECT_EQ(decoder.next()->body, R"({"a":)");
  decoder.resynchronise();
  EXPECT_EQ(decoder.next()->body, "{}");
  EXPECT_FALSE(decoder.next());
}

TEST(Messages, AreReadOrRefusedWithTheRightCode) {
  struct Case {
    std::string body;
    int code;  // 0 for a message
  };
  const std::vector<Case> cases = {
      {R"({"jsonrpc":"2.0","id":1,"method":"m","params":{}})", 0},
      {R"({"jsonrpc":"2.0","id":"x","method":"m"})", 0},
      {R"({"jsonrpc":"2.0","method":"m","params":[]})", 0},
      {R"({"jsonrpc":"2.0","id":1,"result":null})", 0},
      {R"({"jsonrpc":"2.0","id":1,"error":{"code":-1,"message":"no"}})", 0},
      {R"({"jsonrpc":"2.0","id":1,"method":"m")", error_code::PARSE_ERROR},
      {"", error_code::PARSE_ERROR},
      {"{\"jsonrpc\":\"2.0\",\"method\":\"\xFF\"}", error_code::PARSE_ERROR},
      {R"([{"jsonrpc":"2.0","method":"m"}])", error_code::INVALID_REQUEST},
      {"3", error_code::INVALID_REQUEST},
      {R"({"id":1,"method":"m"})", error_code::INVALID_REQUEST},
      {R"({"jsonrpc":"1.0","id":1,"method":"m"})", error_code::INVALID_REQUEST},
      {R"({"jsonrpc":"2.0","id":1.5,"method":"m"})", error_code::INVALID_REQUEST},
      {R"({"jsonrpc":"2.0","id":{},"method":"m"})", error_code::INVALID_REQUEST},
      {R"({"jsonrpc":"2.0","id":1,"method":7})", error_code::INVALID_REQUEST},
      {R"({"jsonrpc":"2.0","id":1,"method":"m","params":"p"})", error_code::INVALID_REQUEST},
      {R"({"jsonrpc":"2.0","id":1})", error_code::INVALID_REQUEST},
      {R"({"jsonrpc":"2.0","id":1,"result":1,"error":{"code":1}})", error_code::INVALID_REQUEST},
      {R"({"jsonrpc":"2.0","id":1,"error":{"message":"no code"}})", error_code::INVALID_REQUEST},
      {std::string(100000, '[') + std::string(100000, ']'), error_code::INVALID_REQUEST},
  };
  for (const auto& [body, code] : cases) {
    const auto read = read_message(body);
    const auto* invalid = std::get_if<InvalidMessage>(&read);
    EXPECT_EQ(invalid ? invalid->error.code : 0, code) << body.substr(0, 80);
  }
}

TEST(Uris, NameFilePathsWithPercentEncoding) {
  EXPECT_EQ(path_of_uri("file:///home/a%20b/c%23.md"), "/home/a b/c#.md");
  EXPECT_EQ(path_of_uri("FILE://localhost/x.md"), "/x.md");
  EXPECT_EQ(path_of_uri("file:/x.md"), "/x.md");
  EXPECT_EQ(path_of_uri("file:///x.md?query#fragment"), "/x.md");
  for (const char* uri : {"untitled:Untitled-1", "file://server/share/x.md", "file:///a%zz.md",
                          "file:///a%00.md", "file:x.md"}) {
    EXPECT_FALSE(path_of_uri(uri)) << uri;
  }
  const std::string path = "/tmp/a b/\xC3\xA9t\xC3\xA9 (1)#.md";
  EXPECT_EQ(uri_of_path(path), "file:///tmp/a%20b/%C3%A9t%C3%A9%20%281%29%23.md");
  EXPECT_EQ(path_of_uri(uri_of_path(path)), path);
}

TEST(Positions, LinesEndAtLineFeedsCarriageReturnsOrBoth) {
  struct Case {
    std::string text;
    std::vector<std::string> lines;
  };
  const std::vector<Case> cases = {
      {"", {""}},
      {"a", {"a"}},
      {"a\nb", {"a", "b"}},
      {"a\r\nb\r\n", {"a", "b", ""}},
      {"a\rb", {"a", "b"}},
      {"\r\r\n\n", {"", "", "", ""}},
      {"a\n\rb", {"a", "", "b"}},
  };
  for (const auto& [text, lines] : cases) {
    const Text indexed(text);
    std::vector<std::string> got;
    for (std::size_t i = 0; i < indexed.line_count(); ++i) got.emplace_back(indexed.line(i));
    EXPECT_EQ(got, lines) << text;
  }
}

TEST(Positions, ConvertInUtf16AndUtf8WithClamping) {
  // "a😀b\r\nä\xFF" : the emoji is 4 bytes and 2 UTF-16 units, ä 2 bytes and 1 unit, and the
  // lone 0xFF byte one U+FFFD (1 unit in UTF-16, the byte it is in UTF-8).
  const Text text(
      "a\xF0\x9F\x98\x80"
      "b\r\n\xC3\xA4\xFF");
  struct Case {
    Position position;
    PositionEncoding encoding;
    std::size_t offset;
  };
  const auto utf16 = PositionEncoding::utf16, utf8 = PositionEncoding::utf8;
  const std::vector<Case> cases = {
      {{0, 0}, utf16, 0},  {{0, 1}, utf16, 1},  {{0, 2}, utf16, 1},   // inside the pair
      {{0, 3}, utf16, 5},  {{0, 4}, utf16, 6},  {{0, 99}, utf16, 6},  // past the line's end
      {{1, 1}, utf16, 10}, {{1, 2}, utf16, 11}, {{1, 3}, utf16, 11},
      {{9, 0}, utf16, 11},                                          // past the last line
      {{0, 1}, utf8, 1},   {{0, 3}, utf8, 1},   {{0, 5}, utf8, 5},  // inside the sequence
      {{1, 1}, utf8, 8},   {{1, 2}, utf8, 10},  {{1, 3}, utf8, 11},
  };
  for (const auto& [position, encoding, offset] : cases) {
    EXPECT_EQ(text.offset(position, encoding), offset)
        << position.line << ":" << position.character << " " << encoding_name(encoding);
  }
  struct Back {
    std::size_t offset;
    Position utf16;
    Position utf8;
  };
  const std::vector<Back> backs = {
      {0, {0, 0}, {0, 0}}, {3, {0, 1}, {0, 1}},  // inside the emoji: its start
      {5, {0, 3}, {0, 5}}, {6, {0, 4}, {0, 6}},  {7, {0, 4}, {0, 6}},  // inside "\r\n"
      {8, {1, 0}, {1, 0}}, {10, {1, 1}, {1, 2}}, {11, {1, 2}, {1, 3}}, {99, {1, 2}, {1, 3}},
  };
  for (const auto& [offset, in_utf16, in_utf8] : backs) {
    EXPECT_EQ(text.position(offset, utf16), in_utf16) << offset;
    EXPECT_EQ(text.position(offset, utf8), in_utf8) << offset;
  }
  EXPECT_EQ(text.line_length(0, utf16), 4u);
  EXPECT_EQ(text.line_length(0, utf8), 6u);
  EXPECT_EQ(text.line_length(1, utf16), 2u);
}

TEST(Positions, ReadFromJsonClampedOrRefused) {
  EXPECT_EQ(Json::parse(R"({"line":-3,"character":1e12})").get<Position>(),
            (Position{0, 4294967295u}));
  EXPECT_EQ(Json::parse(R"({"line":18446744073709551615,"character":2})").get<Position>(),
            (Position{4294967295u, 2}));
  for (const char* wrong :
       {R"({"line":"1","character":0})", R"({"line":true,"character":0})", R"({"line":1})", "[]"}) {
    EXPECT_THROW(Json::parse(wrong).get<Position>(), Json::exception) << wrong;
  }
}

// A change made to a text gives the text, and the line index, that the result read afresh has.
void expect_same(const Text& changed, const std::string& expected, const std::string& why) {
  const Text fresh(expected);
  ASSERT_EQ(changed.bytes(), expected) << why;
  ASSERT_EQ(changed.line_count(), fresh.line_count()) << why;
  for (std::size_t i = 0; i < fresh.line_count(); ++i) {
    ASSERT_EQ(changed.line_start(i), fresh.line_start(i)) << why << " line " << i;
  }
}

TEST(Positions, ChangesAreMadeAndLinesFoundAgain) {
  struct Case {
    std::string text;
    Range range;
    std::string replacement;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"abc", {{0, 1}, {0, 2}}, "X", "aXc"},
      {"a\nb\nc", {{0, 1}, {2, 0}}, "", "ac"},
      {"a\r", {{1, 0}, {1, 0}}, "\nb", "a\r\nb"},  // "\r" and "\n" become one line end
      {"a\r\nb", {{0, 1}, {1, 0}}, "\r", "a\rb"},  // a line end for another
      {"a\r\nb", {{0, 2}, {1, 0}}, "x", "axb"},    // past the line's end: at its end
      {"a\rb", {{0, 1}, {1, 0}}, "\r\n\r", "a\r\n\rb"},
      {"ab", {{0, 2}, {0, 0}}, "x", "x"},          // a range the wrong way round
      {"ab", {{5, 0}, {7, 0}}, "\ncd", "ab\ncd"},  // past the end: appended
      {"", {{0, 0}, {0, 0}}, "\r\n\r\n", "\r\n\r\n"},
      {"a\xF0\x9F\x98\x80z", {{0, 1}, {0, 3}}, "b", "abz"},  // the emoji's two units
      {"a\xF0\x9F\x98\x80z", {{0, 2}, {0, 2}}, "b", "ab\xF0\x9F\x98\x80z"},  // inside: before it
  };
  for (const auto& [text, range, replacement, expected] : cases) {
    expect_same(Text(text).changed({range, replacement}, PositionEncoding::utf16), expected,
                text + " -> " + expected);
  }
  expect_same(Text("old").changed({std::nullopt, "new\r\n"}, PositionEncoding::utf16), "new\r\n",
              "a full change");
}

TEST(Positions, RandomEditsKeepTheLineIndexOfTheTextReadAfresh) {
  std::mt19937 random(19);
  const std::vector<std::string> pieces = {
      "a", "\n", "\r", "\r\n", "\xC3\xA4", "\xF0\x9F\x98\x80", "\xFF", ""};
  for (int round = 0; round < 200; ++round) {
    std::string text;
    Text edited(text);
    for (int step = 0; step < 30; ++step) {
      std::string insert;
      for (int n = random() % 4; n > 0; --n) insert += pieces[random() % pieces.size()];
      const auto encoding = random() % 2 ? PositionEncoding::utf8 : PositionEncoding::utf16;
      const auto any_position = [&] {
        return Position{static_cast<std::uint32_t>(random() % (edited.line_count() + 1)),
                        static_cast<std::uint32_t>(random() % 6)};
      };
      const Range range{any_position(), any_position()};
      std::size_t begin = edited.offset(range.start, encoding);
      std::size_t end = edited.offset(range.end, encoding);
      if (end < begin) std::swap(begin, end);
      text = text.substr(0, begin) + insert + text.substr(end);
      edited = edited.changed({range, insert}, encoding);
      expect_same(edited, text, std::string("round ").append(std::to_string(round)));
    }
  }
}

// A client at the other end of a socket: it writes messages and reads what the session writes.
class TestClient {
 public:
  explicit TestClient(int fd) : fd_(fd) {}

  void send(const Json& message) {
    const std::string bytes = framed(message.dump());
    ASSERT_EQ(::write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  void request(int id, std::string_view method, Json params = Json::object()) {
    send({{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", std::move(params)}});
  }
  void notify(std::string_view method, Json params = Json::object()) {
    send({{"jsonrpc", "2.0"}, {"method", method}, {"params", std::move(params)}});
  }
  // The next message the session writes, other than log messages; null after 10 s.
  Json receive() {
    for (;;) {
      while (auto frame = decoder_.next()) {
        Json message = Json::parse(frame->body);
        if (message.value("method", "") != "window/logMessage") return message;
      }
      pollfd watched{fd_, POLLIN, 0};
      if (::poll(&watched, 1, 10000) <= 0) return nullptr;
      char chunk[4096];
      const ssize_t n = ::read(fd_, chunk, sizeof chunk);
      if (n <= 0) return nullptr;
      decoder_.feed(std::string_view(chunk, static_cast<std::size_t>(n)));
    }
  }

 private:
  int fd_;
  FrameDecoder decoder_;
};

// A session on one end of a socket pair, run on a thread of its own.
class SessionTest : public ::testing::Test {
 protected:
  SessionTest() {
    int fds[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    server_fd_ = fds[0];
    client_fd_ = fds[1];
    client_ = TestClient(client_fd_);
    session_ = std::make_unique<Session>(server_fd_, server_fd_,
                                         ServerInfo{"test-server", "1", "test"}, 2);
  }
  ~SessionTest() override {
    ::close(client_fd_);
    if (thread_.joinable()) thread_.join();
    session_.reset();
    ::close(server_fd_);
  }
  void start() {
    thread_ = std::thread([this] { status_ = session_->run(); });
  }
  void initialize(Json capabilities, Json params = Json::object()) {
    params["capabilities"] = std::move(capabilities);
    client_.request(0, "initialize", std::move(params));
    EXPECT_TRUE(client_.receive().contains("result"));
  }
  int stop() {
    client_.request(999, "shutdown");
    EXPECT_EQ(client_.receive()["id"], 999);
    client_.notify("exit");
    thread_.join();
    return status_;
  }

  int server_fd_ = -1;
  int client_fd_ = -1;
  std::unique_ptr<Session> session_;
  TestClient client_{-1};  // set in the constructor
  std::thread thread_;
  int status_ = -1;
};

TEST_F(SessionTest, RepliesAreSentOnceAndNeverLost) {
  Session& session = *session_;
  session.on_request("test/later", [&](const Json& params, Reply reply) {
    session.run_in_background(
        [&session, value = params.at("value"), reply = std::move(reply)]() mutable {
          session.post([value, reply = std::move(reply)]() mutable {
            reply.result(value);
            reply.result("a second answer, never sent");
          });
        });
  });
  session.on_request("test/dropped", [](const Json&, Reply) {});
  session.on_request("test/wrong-params", [](const Json& params, Reply reply) {
    reply.result(params.at("missing").get<int>());
  });
  std::vector<Reply> parked;
  session.on_request("test/parked",
                     [&](const Json&, Reply reply) { parked.push_back(std::move(reply)); });
  session.on_request("test/count-parked",
                     [&](const Json&, Reply reply) { reply.result(parked.size()); });
  session.on_request("test/answer-parked", [&](const Json&, Reply reply) {
    for (Reply& waiting : parked) waiting.result("too late");
    reply.result(parked.size());
  });
  start();
  initialize(Json::object());
  const auto code_of = [](const Json& message) { return message["error"]["code"].get<int>(); };
  client_.request(1, "test/later", {{"value", 42}});
  EXPECT_EQ(client_.receive()["result"], 42);
  client_.request(2, "test/dropped");
  EXPECT_EQ(code_of(client_.receive()), error_code::INTERNAL_ERROR);
  client_.request(3, "test/wrong-params");
  EXPECT_EQ(code_of(client_.receive()), error_code::INVALID_PARAMS);
  client_.request(4, "test/parked");
  client_.request(40, "test/count-parked");  // so that 4 was handled before it is cancelled
  EXPECT_EQ(client_.receive()["result"], 1);
  client_.notify("$/cancelRequest", {{"id", 4}});
  const Json cancelled = client_.receive();
  EXPECT_EQ(cancelled["id"], 4);
  EXPECT_EQ(code_of(cancelled), error_code::REQUEST_CANCELLED);
  client_.notify("$/cancelRequest", {{"id", 77}});  // not a request in flight: ignored
  client_.request(5, "test/answer-parked");
  const Json answered = client_.receive();  // not a second answer to 4
  EXPECT_EQ(answered["id"], 5);
  EXPECT_EQ(answered["result"], 1);
  client_.request(6, "test/unknown");
  EXPECT_EQ(code_of(client_.receive()), error_code::METHOD_NOT_FOUND);
  EXPECT_EQ(stop(), 0);
}

TEST_F(SessionTest, HandsSettingsFoldersWatchedFilesAndDocumentsToListeners) {
  Session& session = *session_;
  std::vector<Json> settings;
  std::vector<std::string> folder_events;
  std::vector<std::string> file_changes;
  std::vector<std::string> document_events;
  session.on_settings([&](const Json& value) { settings.push_back(value); });
  session.on_folders([&](const auto& added, const auto& removed) {
    std::string event;
    for (const auto& folder : added)
      event.append("+").append(folder.path).append("(" + folder.name + ")");
    for (const auto& folder : removed) event.append("-").append(folder.path);
    folder_events.push_back(event);
  });
  session.watch_files({"**/*.md"}, [&](const std::vector<FileChange>& changes) {
    for (const auto& change : changes) {
      file_changes.push_back(std::to_string(static_cast<int>(change.type)) + change.path.string());
    }
  });
  session.on_document([&](DocumentEvent event, const OpenDocument& document) {
    document_events.push_back(std::to_string(static_cast<int>(event)) + " v" +
                              std::to_string(document.version) + " " + document.text->bytes());
  });
  session.on_initialized([&] {
    Progress progress = session.begin_progress("Reading");
    progress.report("half", 50);
    progress.end("read");
  });
  start();
  initialize(
      {{"workspace",
        {{"configuration", true}, {"didChangeWatchedFiles", {{"dynamicRegistration", true}}}}},
       {"window", {{"workDoneProgress", true}}},
       {"general", {{"positionEncodings", {"utf-8", "utf-16"}}}}},
      {{"initializationOptions", {{"a", 1}, {"b", 1}}},
       {"workspaceFolders", {{{"uri", "file:///w/one"}, {"name", "one"}}}}});
  client_.notify("initialized");
  // The server's requests after `initialized`, in the order sent: progress, watchers, settings.
  std::vector<Json> requests;
  for (int i = 0; i < 3; ++i) requests.push_back(client_.receive());
  EXPECT_EQ(requests[0]["method"], "window/workDoneProgress/create");
  EXPECT_EQ(requests[1]["method"], "client/registerCapability");
  EXPECT_EQ(
      requests[1]["params"]["registrations"][0]["registerOptions"]["watchers"][0]["globPattern"],
      "**/*.md");
  EXPECT_EQ(requests[2]["method"], "workspace/configuration");
  EXPECT_EQ(requests[2]["params"]["items"][0]["section"], "test");
  client_.send({{"jsonrpc", "2.0"}, {"id", requests[0]["id"]}, {"result", nullptr}});
  const Json token = requests[0]["params"]["token"];
  for (const char* kind : {"begin", "report", "end"}) {
    const Json progress = client_.receive();
    EXPECT_EQ(progress["method"], "$/progress");
    EXPECT_EQ(progress["params"]["token"], token);
    EXPECT_EQ(progress["params"]["value"]["kind"], kind);
  }
  client_.send({{"jsonrpc", "2.0"}, {"id", requests[1]["id"]}, {"result", nullptr}});
  client_.send({{"jsonrpc", "2.0"}, {"id", requests[2]["id"]}, {"result", {{{"b", 2}}}}});
  client_.notify("workspace/didChangeConfiguration", {{"settings", nullptr}});
  const Json pulled = client_.receive();
  EXPECT_EQ(pulled["method"], "workspace/configuration");
  client_.send({{"jsonrpc", "2.0"}, {"id", pulled["id"]}, {"result", {{{"c", 3}}}}});
  client_.notify("workspace/didChangeWorkspaceFolders",
                 {{"event",
                   {{"added", {{{"uri", "file:///w/two"}, {"name", "two"}}}},
                    {"removed", {{{"uri", "file:///w/one"}, {"name", "one"}}}}}}});
  client_.notify("workspace/didChangeWatchedFiles",
                 {{"changes", {{{"uri", "file:///w/two/a%20b.md"}, {"type", 3}}}}});
  client_.notify("textDocument/didOpen", {{"textDocument",
                                           {{"uri", "file:///w/two/x.md"},
                                            {"languageId", "markdown"},
                                            {"version", 1},
                                            {"text", "\xC3\xA4x\n"}}}});
  // In UTF-8, the client's choice: "x" is at character 2.
  client_.notify(
      "textDocument/didChange",
      {{"textDocument", {{"uri", "file:///w/two/x.md"}, {"version", 2}}},
       {"contentChanges",
        {{{"range",
           {{"start", {{"line", 0}, {"character", 2}}}, {"end", {{"line", 0}, {"character", 3}}}}},
          {"text", "y"}},
         {{"range",
           {{"start", {{"line", 1}, {"character", 0}}}, {"end", {{"line", 1}, {"character", 0}}}}},
          {"text", "z"}}}}});
  client_.notify("textDocument/didSave", {{"textDocument", {{"uri", "file:///w/two/x.md"}}}});
  client_.notify("textDocument/didClose", {{"textDocument", {{"uri", "file:///w/two/x.md"}}}});
  EXPECT_EQ(stop(), 0);

  EXPECT_EQ(settings,
            (std::vector<Json>{
                {{"a", 1}, {"b", 1}}, {{"a", 1}, {"b", 2}}, {{"a", 1}, {"b", 1}, {"c", 3}}}));
  EXPECT_EQ(folder_events, (std::vector<std::string>{"+/w/one(one)", "+/w/two(two)-/w/one"}));
  EXPECT_EQ(file_changes, (std::vector<std::string>{"3/w/two/a b.md"}));
  EXPECT_EQ(document_events, (std::vector<std::string>{"0 v1 \xC3\xA4x\n", "1 v2 \xC3\xA4y\nz",
                                                       "2 v2 \xC3\xA4y\nz", "3 v2 \xC3\xA4y\nz"}));
}

TEST_F(SessionTest, FollowsTheLifecycle) {
  start();
  client_.request(1, "test/anything");
  EXPECT_EQ(client_.receive()["error"]["code"], error_code::SERVER_NOT_INITIALIZED);
  initialize(Json::object());
  client_.request(2, "initialize", {{"capabilities", Json::object()}});
  EXPECT_EQ(client_.receive()["error"]["code"], error_code::INVALID_REQUEST);
  client_.request(3, "shutdown");
  EXPECT_TRUE(client_.receive()["result"].is_null());
  client_.request(4, "test/anything");
  EXPECT_EQ(client_.receive()["error"]["code"], error_code::INVALID_REQUEST);
  client_.notify("exit");
  thread_.join();
  EXPECT_EQ(status_, 0);
}

TEST_F(SessionTest, EndsWithStatusOneWithoutShutdown) {
  start();
  initialize(Json::object());
  ::shutdown(client_fd_, SHUT_WR);  // the end of the input
  thread_.join();
  EXPECT_EQ(status_, 1);
}

}  // namespace
}  // namespace tarnwick::lsp
