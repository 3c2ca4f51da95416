#include "tools/tarsil/report/csvLine.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "tarsil/support/floatText.hpp"
#include "tools/tarsil/report/reportText.hpp"

namespace tarsil::cli {
namespace {

/// A field as RFC 4180 has it: in quotes when it holds one, a comma or a line end.
std::string field(std::string_view text) {
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(text);
  std::string quoted = "\"";
  for (const char character : text) {
    if (character == '"') quoted += '"';
    quoted += character;
  }
  return quoted + '"';
}

std::string line(Duration at, Role role, std::string_view kind, std::string_view what,
                 const std::vector<float>& values, std::string_view text) {
  std::array<std::string, 3> cells;
  for (std::size_t i = 0; i < std::min(values.size(), cells.size()); ++i) cells[i] = decimalText(values[i]);
  return fmt::format("{:.3f},{},{},{},{},{},{},{}\n", inSeconds(at), nameOf(role), kind, field(what),
                     cells[0], cells[1], cells[2], field(text));
}

}  // namespace

std::string csvLine(const Entry& entry) {
  return line(entry.at, entry.role, nameOf(entry.kind), entry.what, entry.values, entry.text);
}

std::string csvLine(const Chunk& chunk, Duration at, Role role) {
  const bool isSent = chunk.direction == Chunk::Direction::sent;
  return line(at, role, isSent ? "sent" : "received", "bytes", {}, hexText(chunk.bytes));
}

}  // namespace tarsil::cli
