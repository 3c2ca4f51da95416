#include "tools/tarsil/parseErrorText.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <vector>

#include "tools/tarsil/didYouMean.hpp"

namespace tarsil::cli {
namespace {

/// The command that was chosen, or the program itself.
const CLI::App& chosenIn(const CLI::App& program) {
  const auto chosen = program.get_subcommands();
  return chosen.empty() ? program : *chosen.front();
}

std::vector<std::string> optionsOf(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

std::vector<std::string> commandsOf(const CLI::App& program) {
  std::vector<std::string> names;
  for (const CLI::App* command : program.get_subcommands({})) names.push_back(command->get_name());
  return names;
}

std::string extraText(const CLI::App& program) {
  const CLI::App& chosen = chosenIn(program);
  const auto extras = program.remaining(true);
  const std::string word = extras.empty() ? "" : extras.front();
  if (word.starts_with('-') && word.size() > 1)
    return fmt::format("{} has no option {}{}", chosen.get_name(), word, didYouMean(word, optionsOf(chosen)));
  if (&chosen == &program)
    return fmt::format("there is no command \"{}\"{}", word, didYouMean(word, commandsOf(program)));
  return fmt::format("\"{}\" is one word too many for {}", word, chosen.get_name());
}

/// What stands behind the library's own beginning.
std::string without(const std::string& beginning, const std::string& text) {
  return text.starts_with(beginning) ? text.substr(beginning.size()) : text;
}

std::string reasonText(const CLI::ParseError& error, const CLI::App& program) {
  const std::string text = error.what();
  if (dynamic_cast<const CLI::ExtrasError*>(&error)) return extraText(program);
  if (dynamic_cast<const CLI::RequiredError*>(&error)) {
    // The library counts what is there before it looks at words that it does not know.
    if (!program.remaining(true).empty()) return extraText(program);
    if (&chosenIn(program) != &program) return text;
    return fmt::format("name a command: {}", fmt::join(commandsOf(program), ", "));
  }
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error))
    return text.substr(0, text.find(':')) + " needs a value";
  if (dynamic_cast<const CLI::ConversionError*>(&error)) {
    const std::string said = without("Could not convert: ", text);
    const std::size_t sign = said.find(" = ");
    if (sign != std::string::npos)
      return fmt::format("{}: \"{}\" is no number", said.substr(0, sign), said.substr(sign + 3));
  }
  return text;
}

}  // namespace

std::string parseErrorText(const CLI::ParseError& error, const CLI::App& program) {
  const CLI::App& chosen = chosenIn(program);
  const std::string command = &chosen == &program ? "" : " " + chosen.get_name();
  return fmt::format("{}; see `tarsil{} --help`", reasonText(error, program), command);
}

}  // namespace tarsil::cli
