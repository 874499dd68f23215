// Front matter fields: what the YAML and TOML readers find under each key.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <variant>

namespace tarnwick::engines::markdown::detail {

inline constexpr std::string_view TITLE = "title";
inline constexpr std::string_view DESCRIPTION = "description";

// An integer of any size, as its decimal digits with a leading '-' when negative.
struct Integer {
  std::string decimal;

  bool operator==(const Integer&) const = default;
};

// Values that never show as text keep only their kind.
enum class Opaque { DATE, TIMESTAMP, BINARY, LIST, SET, MAPPING };

// A field's value as its reader typed it. Null comes first, so a default value is null.
using Value = std::variant<std::nullptr_t, bool, Integer, double, std::string, Opaque>;

// Key text to value.
using Fields = std::map<std::string, Value, std::less<>>;

}  // namespace tarnwick::engines::markdown::detail
