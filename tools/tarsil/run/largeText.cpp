#include "tools/tarsil/run/largeText.hpp"

#include <cstddef>

namespace tarsil::cli {
namespace {

struct Glyph {
  char character;
  std::array<std::string_view, 3> rows;
};

constexpr std::array glyphs{
    Glyph{'0', {" _ ", "| |", "|_|"}}, Glyph{'1', {"   ", "  |", "  |"}}, Glyph{'2', {" _ ", " _|", "|_ "}},
    Glyph{'3', {" _ ", " _|", " _|"}}, Glyph{'4', {"   ", "|_|", "  |"}}, Glyph{'5', {" _ ", "|_ ", " _|"}},
    Glyph{'6', {" _ ", "|_ ", "|_|"}}, Glyph{'7', {" _ ", "  |", "  |"}}, Glyph{'8', {" _ ", "|_|", "|_|"}},
    Glyph{'9', {" _ ", "|_|", " _|"}}, Glyph{'-', {"   ", " _ ", "   "}}, Glyph{'.', {" ", " ", "."}},
    Glyph{':', {" ", ".", "."}},
};

}  // namespace

std::array<std::string, 3> largeText(std::string_view text) {
  std::array<std::string, 3> rows;
  for (const char character : text) {
    for (const Glyph& glyph : glyphs) {
      if (glyph.character != character) continue;
      for (std::size_t row = 0; row < rows.size(); ++row) rows[row] += std::string(glyph.rows[row]) + " ";
    }
  }
  return rows;
}

}  // namespace tarsil::cli
