#include "check/report.hpp"

#include "tarnwick/version.hpp"
#include "text/json.hpp"

namespace tarnwick::check {

namespace {

using text::append_json_string;

// The level a code scanner shows: what site generators read is only a warning.
std::string_view level(Code code) {
  return info(code).site_generator ? "warning" : "error";
}

void append_text(std::string& out, const Problem& problem) {
  out += problem.path + ":" + std::to_string(problem.line) + ":" + std::to_string(problem.column) +
         ": " + std::string(info(problem.code).name) + ": " + message_with_suggestion(problem) +
         "\n";
}

}  // namespace

std::string message_with_suggestion(const Problem& problem) {
  return problem.message +
         (problem.suggestion ? " (did you mean \"" + *problem.suggestion + "\"?)" : std::string());
}

namespace {

void append_json(std::string& out, const Problem& problem) {
  out += "{\"path\":";
  append_json_string(out, problem.path);
  out += ",\"line\":" + std::to_string(problem.line);
  out += ",\"column\":" + std::to_string(problem.column);
  out += ",\"target\":";
  append_json_string(out, problem.target);
  out += ",\"code\":";
  append_json_string(out, info(problem.code).name);
  out += ",\"message\":";
  append_json_string(out, problem.message);
  out += ",\"suggestion\":";
  if (problem.suggestion) {
    append_json_string(out, *problem.suggestion);
  } else {
    out += "null";
  }
  out += "}\n";
}

// Workflow command values escape "%", CR and LF; property values also ":" and ",".
std::string workflow_escaped(std::string_view text, bool property) {
  std::string escaped;
  for (const char c : text) {
    if (c == '%') {
      escaped += "%25";
    } else if (c == '\r') {
      escaped += "%0D";
    } else if (c == '\n') {
      escaped += "%0A";
    } else if (property && c == ':') {
      escaped += "%3A";
    } else if (property && c == ',') {
      escaped += "%2C";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

void append_github(std::string& out, const Problem& problem) {
  out += "::" + std::string(level(problem.code)) + " file=" + workflow_escaped(problem.path, true) +
         ",line=" + std::to_string(problem.line) + ",col=" + std::to_string(problem.column) +
         ",title=" + workflow_escaped(info(problem.code).name, true) +
         "::" + workflow_escaped(message_with_suggestion(problem), false) + "\n";
}

// A relative path as a URI reference: bytes other than unreserved ones and "/" escaped.
std::string uri_path(std::string_view path) {
  constexpr std::string_view HEX = "0123456789ABCDEF";
  std::string uri;
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
        (byte >= '0' && byte <= '9') || c == '-' || c == '.' || c == '_' || c == '~' || c == '/') {
      uri += c;
    } else {
      uri += '%';
      uri += HEX[byte >> 4];
      uri += HEX[byte & 0xF];
    }
  }
  return uri;
}

std::string sarif(const std::vector<Problem>& problems) {
  std::string out =
      R"({"version":"2.1.0","$schema":"https://json.schemastore.org/sarif-2.1.0.json","runs":[{"tool":{"driver":{"name":"tarnwick-md","version":")";
  out += TARNWICK_MARKDOWN_VERSION;
  out += R"(","rules":[)";
  for (const CodeInfo& code : CODES) {
    if (code.code != CODES.front().code) out += ',';
    out += "{\"id\":";
    append_json_string(out, code.name);
    out += ",\"shortDescription\":{\"text\":";
    append_json_string(out, code.description);
    out += "},\"defaultConfiguration\":{\"level\":\"" + std::string(level(code.code)) + "\"}}";
  }
  out += "]}},\"results\":[";
  for (const Problem& problem : problems) {
    if (&problem != &problems.front()) out += ',';
    out += "{\"ruleId\":";
    append_json_string(out, info(problem.code).name);
    out += ",\"ruleIndex\":" + std::to_string(static_cast<int>(problem.code));
    out += ",\"level\":\"" + std::string(level(problem.code)) + "\",\"message\":{\"text\":";
    append_json_string(out, message_with_suggestion(problem));
    out += "},\"locations\":[{\"physicalLocation\":{\"artifactLocation\":{\"uri\":";
    append_json_string(out, uri_path(problem.path));
    out += "},\"region\":{\"startLine\":" + std::to_string(problem.line) +
           ",\"startColumn\":" + std::to_string(problem.column) + "}}}]";
    if (problem.baseline != BaselineState::none) {
      out += ",\"baselineState\":\"";
      out += problem.baseline == BaselineState::unchanged ? "unchanged" : "new";
      out += '"';
    }
    out += '}';
  }
  out += "]}]}\n";
  return out;
}

}  // namespace

std::string format_problems(const std::vector<Problem>& problems, Format format) {
  if (format == Format::sarif) return sarif(problems);
  std::string out;
  for (const Problem& problem : problems) {
    switch (format) {
      case Format::text:
        append_text(out, problem);
        break;
      case Format::json:
        append_json(out, problem);
        break;
      default:
        append_github(out, problem);
    }
  }
  return out;
}

}  // namespace tarnwick::check
