#include "tools/tarsil/replay/Operation.hpp"

#include <utility>

#include "tools/tarsil/replay/ScriptError.hpp"

namespace tarsil::cli {

Operation::Operation(Json object) : object_(std::move(object)) {
  if (!object_.is_object()) throw ScriptError("an operation must be a JSON object");
  name_ = (*this)["op"].text();
}

Operation Operation::read(const std::string& line) {
  try {
    return Operation(Json::parse(line));
  } catch (const Json::exception& error) {
    throw ScriptError(std::string("no JSON: ") + error.what());
  }
}

Value Operation::operator[](const std::string& member) const {
  const auto value = find(member);
  if (!value) throw ScriptError('"' + member + "\" is missing");
  return *value;
}

std::optional<Value> Operation::find(const std::string& member) const {
  const auto found = object_.find(member);
  if (found == object_.end()) return std::nullopt;
  return Value('"' + member + '"', *found);
}

std::vector<Value> Operation::arguments(std::size_t count) const {
  const auto list = find("args");
  auto values = list ? list->elements() : std::vector<Value>{};
  if (values.size() != count) {
    throw ScriptError('"' + name_ + "\" takes " + std::to_string(count) + " arguments in \"args\", not " +
                      std::to_string(values.size()));
  }
  return values;
}

}  // namespace tarsil::cli
