#include "tools/tarsil/run/stationNamed.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "tarsil/platform/UserFolders.hpp"
#include "tarsil/support/numberText.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/didYouMean.hpp"
#include "tools/tarsil/exerciseModel.hpp"

namespace tarsil::cli {
namespace {

constexpr const char* suffix = ".station";

/// Where stations are looked for, in this order.
std::vector<std::filesystem::path> folders() {
  const char* const chosen = std::getenv("XDG_CONFIG_HOME");
  const std::filesystem::path settings =
      chosen && *chosen ? std::filesystem::path(chosen)
                        : std::filesystem::path(UserFolders::shared()->home()) / ".config";
  return {settings / "tarsil", "/etc/tarsil"};
}

std::filesystem::path fileOf(const std::string& name) {
  if (name.find('/') != std::string::npos) return name;
  std::error_code ignored;
  for (const auto& folder : folders()) {
    if (const auto file = folder / (name + suffix); std::filesystem::exists(file, ignored)) return file;
  }
  throw CommandFailure(
      badInput, fmt::format("there is no station \"{}\": neither {} nor {}{}", name,
                            (folders()[0] / (name + suffix)).string(),
                            (folders()[1] / (name + suffix)).string(), didYouMean(name, stationNames())));
}

/// Reads one file, line by line.
class Reader {
 public:
  explicit Reader(std::filesystem::path path) : path_(std::move(path)) {}

  Station read() {
    std::ifstream file(path_);
    if (!file)
      throw CommandFailure(badInput, fmt::format("cannot read the station {}: {}", path_.string(),
                                                 std::generic_category().message(errno)));
    for (std::string text; std::getline(file, text);) {
      ++line_;
      std::istringstream stream(text.substr(0, text.find('#')));
      std::vector<std::string> words;
      for (std::string word; stream >> word;) words.push_back(word);
      if (!words.empty()) statement(words);
    }
    if (station_.exercise.empty()) fail("there is no exercise device: exercise MODEL PORT");
    return station_;
  }

 private:
  using Words = std::vector<std::string>;

  [[noreturn]] void fail(const std::string& reason) const {
    throw CommandFailure(badInput, fmt::format("{}:{}: {}", path_.string(), line_, reason));
  }

  void statement(const Words& words) {
    const std::string& word = words.front();
    if (word == "exercise") return exercise(words);
    if (word == "monitor") return text(words, station_.monitor);
    if (word == "oximeter") return text(words, station_.oximeter);
    if (word == "report") return text(words, station_.report);
    if (word == "max-speed") return number(words, station_.maxSpeed, 25);
    if (word == "max-grade") return number(words, station_.maxGrade, 30);
    if (word == "max-power") return number(words, station_.maxPower, 999);
    if (word == "strict" && words.size() == 1) {
      station_.isStrict = true;
      return;
    }
    fail("unknown word \"" + word + "\"" +
         didYouMean(word, {"exercise", "monitor", "oximeter", "report", "max-speed", "max-grade", "max-power",
                           "strict"}));
  }

  void exercise(const Words& words) {
    if (words.size() != 3) fail("exercise needs a model and a port");
    if (!station_.exercise.empty()) fail("the exercise device was named before");
    try {
      station_.exercise = exerciseModel(words[1]).name + "@" + words[2];
    } catch (const CommandFailure& unknown) {
      fail(unknown.what());
    }
  }

  /// Paths may have blanks in them.
  void text(const Words& words, std::string& value) const {
    if (words.size() < 2) fail(words[0] + " needs a value");
    if (!value.empty()) fail(words[0] + " was given before");
    value = fmt::format("{}", fmt::join(words.begin() + 1, words.end(), " "));
  }

  void number(const Words& words, std::optional<float>& value, float greatest) const {
    const auto given = words.size() == 2 ? readFloat(words[1]) : std::nullopt;
    if (!given) fail(words[0] + " needs a number");
    if (!(*given > 0 && *given <= greatest))
      fail(fmt::format("{} must be above 0 and at most {:g}, not {}", words[0], greatest, words[1]));
    if (value) fail(words[0] + " was given before");
    value = given;
  }

  const std::filesystem::path path_;
  int line_ = 0;
  Station station_;
};

}  // namespace

std::vector<std::string> stationNames() {
  std::vector<std::string> names;
  for (const auto& folder : folders()) {
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(folder, none)) {
      if (entry.path().extension() == suffix) names.push_back(entry.path().stem().string());
    }
  }
  return names;
}

Station stationNamed(const std::string& name) {
  return Reader(fileOf(name)).read();
}

}  // namespace tarsil::cli
