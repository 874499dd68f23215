// JSON-RPC 2.0 messages as the language server protocol uses them: what a message body holds,
// the error codes, and the messages the server writes.
#pragma once

#include <nlohmann/json.hpp>

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace tarnwick::lsp {

using Json = nlohmann::json;

// Error codes of JSON-RPC and of the protocol.
namespace error_code {
inline constexpr int PARSE_ERROR = -32700;
inline constexpr int INVALID_REQUEST = -32600;
inline constexpr int METHOD_NOT_FOUND = -32601;
inline constexpr int INVALID_PARAMS = -32602;
inline constexpr int INTERNAL_ERROR = -32603;
inline constexpr int SERVER_NOT_INITIALIZED = -32002;
inline constexpr int REQUEST_FAILED = -32803;
inline constexpr int CONTENT_MODIFIED = -32801;
inline constexpr int REQUEST_CANCELLED = -32800;
}  // namespace error_code

struct ResponseError {
  int code = error_code::INTERNAL_ERROR;
  std::string message;
};

// A well-formed message: a request (an id and a method), a notification (a method, no id) or a
// response to one of the server's requests (an id and a result or an error).
struct Message {
  enum class Kind { request, notification, response };
  Kind kind = Kind::notification;
  Json id;                             // an integer or a string; null for a notification
  std::string method;                  // requests and notifications
  Json params;                         // an object or an array; null when absent
  Json result;                         // responses
  std::optional<ResponseError> error;  // responses that failed
};

// A body that is not a message: the error to answer it with, and the id to answer (null when
// the body has no usable id).
struct InvalidMessage {
  Json id;
  ResponseError error;
};

// Reads a message body: invalid JSON is a parse error, JSON that is not a message of JSON-RPC
// 2.0 (a batch among them, which the protocol does not use) an invalid request.
std::variant<Message, InvalidMessage> read_message(std::string_view body);

// The messages the server writes.
Json response_message(const Json& id, Json result);
Json error_message(const Json& id, const ResponseError& error);
Json notification_message(std::string_view method, Json params);
Json request_message(const Json& id, std::string_view method, Json params);

// The value at a path of object members ("workspace", "configuration"), or null when one of
// them is missing or not an object: for reading what a client says it supports.
const Json& member(const Json& json, std::initializer_list<std::string_view> path);

// A message as its body is written: compact, with text that is not UTF-8 (paths read from
// the file system may hold it) written as U+FFFD rather than refused.
std::string serialize(const Json& message);

}  // namespace tarnwick::lsp
