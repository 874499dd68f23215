// The records are written straight into the output text: building a JSON document for each
// record took more time than the engine's links.
#include "cli/records.hpp"

#include <charconv>
#include <optional>
#include <string_view>

#include "text/utf8.hpp"

namespace tarnwick::cli {

namespace {

namespace utf8 = tarnwick::text;

bool needs_escape(unsigned char byte) {
  return byte < 0x20 || byte == '"' || byte == '\\';
}

void append_escape(std::string& out, unsigned char byte) {
  switch (byte) {
    case '"':
      out += "\\\"";
      return;
    case '\\':
      out += "\\\\";
      return;
    case '\b':
      out += "\\b";
      return;
    case '\f':
      out += "\\f";
      return;
    case '\n':
      out += "\\n";
      return;
    case '\r':
      out += "\\r";
      return;
    case '\t':
      out += "\\t";
      return;
    default:
      break;
  }
  constexpr std::string_view HEX = "0123456789abcdef";
  out += "\\u00";
  out += HEX[byte >> 4];
  out += HEX[byte & 0xF];
}

void append_number(std::string& out, std::int64_t number) {
  char digits[24];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
  out.append(digits, end);
}

// The fields of one record, in order, on one line.
class Record {
 public:
  Record(std::string& out, std::string_view type) : out_(out) {
    out_ += R"({"type":")";
    out_ += type;
    out_ += '"';
  }
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;
  ~Record() { out_ += "}\n"; }

  void text(std::string_view name, std::string_view value) {
    key(name);
    append_json_string(out_, value);
  }
  void text_or_null(std::string_view name, const std::optional<std::string>& value) {
    if (value) return text(name, *value);
    null(name);
  }
  void number(std::string_view name, std::int64_t value) {
    key(name);
    append_number(out_, value);
  }
  void number_or_null(std::string_view name, std::optional<std::int64_t> value) {
    if (value) return number(name, *value);
    null(name);
  }
  void boolean(std::string_view name, bool value) {
    key(name);
    out_ += value ? "true" : "false";
  }

 private:
  // Keys and types are this file's own literals, which need no escaping.
  void key(std::string_view name) {
    out_ += ",\"";
    out_ += name;
    out_ += "\":";
  }
  void null(std::string_view name) {
    key(name);
    out_ += "null";
  }

  std::string& out_;
};

}  // namespace

void append_json_string(std::string& out, std::string_view text) {
  out += '"';
  std::size_t copied = 0, pos = 0;
  while (pos < text.size()) {
    const auto byte = static_cast<unsigned char>(text[pos]);
    if (byte < 0x80) {
      if (!needs_escape(byte)) {
        ++pos;
        continue;
      }
      out.append(text, copied, pos - copied);
      append_escape(out, byte);
      ++pos;
    } else {
      const int length = utf8::sequence_length(text, pos);
      if (length > 0) {
        pos += static_cast<std::size_t>(length);
        continue;
      }
      out.append(text, copied, pos - copied);
      utf8::append_utf8(out, utf8::REPLACEMENT_CHARACTER);
      pos += static_cast<std::size_t>(-length);
    }
    copied = pos;
  }
  out.append(text, copied);
  out += '"';
}

void append_symbol_record(std::string& out, const std::string& path, const Symbol& symbol) {
  Record record(out, "symbol");
  record.text("path", path);
  record.number("file_id", symbol.file_id);
  record.number_or_null("id", symbol.id);
  record.text("name", symbol.name);
  record.text("kind", symbol.kind);
  record.text("fqn", symbol.fqn);
  record.number("start_line", symbol.start_line);
  record.number("end_line", symbol.end_line);
  record.text("signature", symbol.signature);
  record.boolean("is_export", symbol.is_export);
  record.text_or_null("docstring", symbol.docstring);
}

void append_reference_record(std::string& out, const std::string& path, std::int64_t file_id,
                             const engines::references::ReferenceInfo& reference) {
  Record record(out, "reference");
  record.text("path", path);
  record.number("file_id", file_id);
  record.text("name", reference.name);
  record.text_or_null("qualifier", reference.qualifier);
  record.text("kind", engines::references::to_string(reference.kind));
  record.number("line", reference.line);
  record.text_or_null("source_fqn", reference.source_fqn);
}

void append_records(std::string& out, const std::string& path, std::int64_t file_id,
                    const IndexedDocument& document) {
  for (const auto& symbol : document.symbols) append_symbol_record(out, path, symbol);
  for (const auto& reference : document.references) {
    append_reference_record(out, path, file_id, reference);
  }
}

}  // namespace tarnwick::cli
