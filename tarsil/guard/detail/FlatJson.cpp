#include "tarsil/guard/detail/FlatJson.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include "tarsil/support/hexText.hpp"
#include "tarsil/support/numberText.hpp"
#include "tarsil/support/utf8.hpp"

namespace tarsil::detail {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

void appendEscaped(std::string& text, std::string_view character) {
  const char first = character[0];
  if (first == '"' || first == '\\') {
    text += '\\';
    text += first;
  } else if (static_cast<unsigned char>(first) < ' ') {
    const auto code = static_cast<std::uint8_t>(first);
    text += "\\u00" + lowerHexText({&code, 1});
  } else {
    text += utf8::isValid(character) ? character : replacement;
  }
}

std::string quoted(std::string_view value) {
  std::string text = "\"";
  while (!value.empty()) {
    const std::string_view character = utf8::firstCharacter(value);
    appendEscaped(text, character);
    value.remove_prefix(character.size());
  }
  return text + '"';
}

void appendUtf8(std::string& text, unsigned code) {
  if (code < 0x80) {
    text += static_cast<char>(code);
  } else if (code < 0x800) {
    text += static_cast<char>(0xC0U | (code >> 6U));
    text += static_cast<char>(0x80U | (code & 0x3FU));
  } else {
    text += static_cast<char>(0xE0U | (code >> 12U));
    text += static_cast<char>(0x80U | ((code >> 6U) & 0x3FU));
    text += static_cast<char>(0x80U | (code & 0x3FU));
  }
}

}  // namespace

void FlatJsonWriter::add(std::string_view key, std::string_view value) {
  addRaw(key, quoted(value));
}

void FlatJsonWriter::add(std::string_view key, std::int64_t value) {
  addRaw(key, std::to_string(value));
}

void FlatJsonWriter::add(std::string_view key, float value) {
  addRaw(key, std::isfinite(value) ? decimalText(value) : "null");
}

void FlatJsonWriter::add(std::string_view key, bool value) {
  addRaw(key, value ? "true" : "false");
}

void FlatJsonWriter::addSeconds(std::string_view key, Duration value) {
  std::array<char, 64> digits{};
  const double seconds = std::chrono::duration<double>(value).count();
  const auto end = std::to_chars(digits.begin(), digits.end(), seconds, std::chars_format::fixed, 6).ptr;
  addRaw(key, {digits.begin(), end});
}

void FlatJsonWriter::addRaw(std::string_view key, std::string_view value) {
  if (text_.size() > 1) text_ += ',';
  text_ += quoted(key);
  text_ += ':';
  text_ += value;
}

std::optional<std::string> FlatJson::text(const std::string& key) const {
  const auto found = values_.find(key);
  if (found == values_.end() || !found->second.isText) return std::nullopt;
  return found->second.characters;
}

const std::string* FlatJson::bare(const std::string& key) const {
  const auto found = values_.find(key);
  return found == values_.end() || found->second.isText ? nullptr : &found->second.characters;
}

std::optional<std::int64_t> FlatJson::integer(const std::string& key) const {
  const std::string* digits = bare(key);
  return digits ? readInteger(*digits) : std::nullopt;
}

std::optional<float> FlatJson::number(const std::string& key) const {
  const std::string* digits = bare(key);
  if (!digits) return std::nullopt;
  return *digits == "null" ? std::numeric_limits<float>::quiet_NaN() : readFloat(*digits);
}

std::optional<bool> FlatJson::truth(const std::string& key) const {
  const std::string* word = bare(key);
  if (!word || (*word != "true" && *word != "false")) return std::nullopt;
  return *word == "true";
}

std::optional<Duration> FlatJson::seconds(const std::string& key) const {
  // Beyond it, a session would have lasted thirty years.
  constexpr double longest = 1e9;
  const std::string* digits = bare(key);
  const auto seconds = digits ? readDouble(*digits) : std::nullopt;
  if (!seconds || std::abs(*seconds) > longest) return std::nullopt;
  return std::chrono::microseconds(std::llround(*seconds * 1e6));
}

std::vector<std::pair<std::string, std::string>> FlatJson::texts() const {
  std::vector<std::pair<std::string, std::string>> all;
  for (const auto& [key, value] : values_) {
    if (value.isText) all.emplace_back(key, value.characters);
  }
  return all;
}

/// Reads one object, character by character. Every step is false where the text is not as it must be.
class FlatJsonReader {
 public:
  explicit FlatJsonReader(std::string_view text) : rest_(text) {}

  std::optional<FlatJson> read() {
    if (!take('{')) return std::nullopt;
    if (!take('}') && !(readMembers() && take('}'))) return std::nullopt;
    skipBlanks();
    if (!rest_.empty()) return std::nullopt;
    return std::move(object_);
  }

 private:
  bool readMembers() {
    do {
      std::string key;
      FlatJson::Value value;
      if (!readText(key) || !take(':') || !readValue(value)) return false;
      if (!object_.values_.emplace(std::move(key), std::move(value)).second) return false;
    } while (take(','));
    return true;
  }

  bool readValue(FlatJson::Value& value) {
    skipBlanks();
    value.isText = rest_.starts_with('"');
    return value.isText ? readText(value.characters) : readBare(value.characters);
  }

  /// Numbers, true, false and null.
  bool readBare(std::string& characters) {
    const std::size_t size = std::min(rest_.find_first_of(",} \t\r\n"), rest_.size());
    characters = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return characters == "true" || characters == "false" || characters == "null" ||
           readDouble(characters).has_value();
  }

  bool readText(std::string& text) {
    if (!take('"')) return false;
    while (!rest_.empty()) {
      const char character = rest_.front();
      rest_.remove_prefix(1);
      if (character == '"') return utf8::isValid(text);
      if (static_cast<unsigned char>(character) < ' ') return false;
      if (character != '\\') {
        text += character;
      } else if (!readEscape(text)) {
        return false;
      }
    }
    return false;
  }

  bool readEscape(std::string& text) {
    if (rest_.empty()) return false;
    const char kind = rest_.front();
    rest_.remove_prefix(1);
    if (kind == 'u') return readCode(text);
    constexpr std::string_view kinds = "\"\\/bfnrt";
    constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
    const std::size_t place = kinds.find(kind);
    if (place == std::string_view::npos) return false;
    text += meanings[place];
    return true;
  }

  bool readCode(std::string& text) {
    unsigned code = 0;
    const std::string_view digits = rest_.substr(0, 4);
    const auto end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, code, 16);
    if (digits.size() < 4 || result.ptr != end || result.ec != std::errc()) return false;
    rest_.remove_prefix(4);
    appendUtf8(text, code);
    return true;
  }

  bool take(char character) {
    skipBlanks();
    if (!rest_.starts_with(character)) return false;
    rest_.remove_prefix(1);
    return true;
  }

  void skipBlanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size())); }

  std::string_view rest_;
  FlatJson object_;
};

std::optional<FlatJson> readFlatJson(std::string_view line) {
  return FlatJsonReader(line).read();
}

}  // namespace tarsil::detail
