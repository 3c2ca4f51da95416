#include "tools/tarsil/report/csvLine.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "tarsil/guard/eventText.hpp"
#include "tarsil/support/numberText.hpp"
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

const char* kindOf(const EventText& told) {
  switch (told.kind) {
    case EventKind::asked:
      return "asked";
    case EventKind::answered:
      return "answered";
    case EventKind::notice:
      return "event";
    case EventKind::failure:
      return "failure";
    case EventKind::traffic:
      return told.word == "sent" ? "sent" : "received";
  }
  return "";
}

}  // namespace

std::string csvLine(const Event& event, Duration at, StressDeviceType kind) {
  const EventText told = textOf(event, kind);
  std::array<std::string, 3> cells;
  for (std::size_t i = 0; i < std::min(told.values.size(), cells.size()); ++i)
    cells[i] = decimalText(told.values[i]);
  const std::string_view what = told.kind == EventKind::traffic ? "bytes" : std::string_view(told.word);
  return fmt::format("{:.3f},{},{},{},{},{},{},{}\n", inSeconds(at), roleOf(event.source), kindOf(told),
                     field(what), cells[0], cells[1], cells[2], field(told.text));
}

}  // namespace tarsil::cli
