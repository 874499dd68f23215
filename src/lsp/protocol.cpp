#include "lsp/protocol.hpp"

namespace tarnwick::lsp {

namespace {

InvalidMessage invalid(Json id, std::string message) {
  return {std::move(id), {error_code::INVALID_REQUEST, std::move(message)}};
}

}  // namespace

std::variant<Message, InvalidMessage> read_message(std::string_view body) {
  Json json;
  try {
    json = Json::parse(body);
  } catch (const Json::parse_error& error) {
    return InvalidMessage{nullptr, {error_code::PARSE_ERROR, error.what()}};
  }
  if (!json.is_object()) return invalid(nullptr, "a message must be a JSON object");
  Message message;
  if (const auto id = json.find("id"); id != json.end()) {
    if (!id->is_number_integer() && !id->is_string()) {
      return invalid(nullptr, "a message's id must be an integer or a string");
    }
    message.id = *id;
  }
  const auto version = json.find("jsonrpc");
  if (version == json.end() || *version != "2.0") {
    return invalid(message.id, "a message must have \"jsonrpc\": \"2.0\"");
  }
  if (const auto method = json.find("method"); method != json.end()) {
    if (!method->is_string()) return invalid(message.id, "a message's method must be a string");
    message.method = method->get<std::string>();
    message.kind = message.id.is_null() ? Message::Kind::notification : Message::Kind::request;
    if (const auto params = json.find("params"); params != json.end()) {
      if (!params->is_object() && !params->is_array()) {
        return invalid(message.id, "a message's params must be an object or an array");
      }
      message.params = std::move(*params);
    }
    return message;
  }
  // A response to one of the server's requests.
  const auto result = json.find("result");
  const auto error = json.find("error");
  if (message.id.is_null() || (result == json.end()) == (error == json.end())) {
    return invalid(message.id, "a message must have a method, or an id and a result or an error");
  }
  message.kind = Message::Kind::response;
  if (result != json.end()) {
    message.result = std::move(*result);
  } else {
    const auto code = error->find("code");
    const auto text = error->find("message");
    if (!error->is_object() || code == error->end() || !code->is_number_integer()) {
      return invalid(message.id, "a response's error must be an object with an integer code");
    }
    message.error = ResponseError{code->get<int>(), text != error->end() && text->is_string()
                                                        ? text->get<std::string>()
                                                        : std::string()};
  }
  return message;
}

Json response_message(const Json& id, Json result) {
  return {{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}};
}

Json error_message(const Json& id, const ResponseError& error) {
  return {{"jsonrpc", "2.0"},
          {"id", id},
          {"error", {{"code", error.code}, {"message", error.message}}}};
}

Json notification_message(std::string_view method, Json params) {
  return {{"jsonrpc", "2.0"}, {"method", method}, {"params", std::move(params)}};
}

Json request_message(const Json& id, std::string_view method, Json params) {
  return {{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", std::move(params)}};
}

const Json& member(const Json& json, std::initializer_list<std::string_view> path) {
  static const Json none;
  const Json* at = &json;
  for (const std::string_view name : path) {
    if (!at->is_object()) return none;
    const auto found = at->find(name);
    if (found == at->end()) return none;
    at = &*found;
  }
  return *at;
}

std::string serialize(const Json& message) {
  return message.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace tarnwick::lsp
