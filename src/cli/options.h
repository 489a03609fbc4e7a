// Checks of the command line's option values, made before a command runs so
// that a value out of range is a usage error (exit code 2) naming its range.
#pragma once

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdint>
#include <string>

namespace ombrel::cli {

// A path that names something: an empty one would be taken for no file.
inline const CLI::Validator kNonEmptyPath(
    [](std::string& value) { return value.empty() ? std::string("must not be empty") : std::string(); }, "PATH");

// A whole number written in decimal digits only (no sign, no exponent), from
// min to max.
inline CLI::Validator WholeNumber(uint64_t min, uint64_t max) {
  const std::string range = "from " + std::to_string(min) + " to " + std::to_string(max);
  return CLI::Validator(
      [min, max, range](std::string& value) -> std::string {
        uint64_t n = 0;
        const char* end = value.data() + value.size();
        auto [ptr, ec] = std::from_chars(value.data(), end, n);
        if (value.empty() || ec != std::errc() || ptr != end || n < min || n > max)
          return "'" + value + "' is not a whole number " + range;
        return {};
      },
      "INT " + range);
}

}  // namespace ombrel::cli
