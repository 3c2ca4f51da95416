#pragma once

#include <optional>
#include <string>

#include "tools/tarsil/replay/Value.hpp"

namespace tarsil::cli {

/// One operation of a script: a JSON object whose member "op" says what to do.
class Operation {
 public:
  /// Throws ScriptError when it is no such object.
  explicit Operation(Json object);
  /// The same from a script's line.
  static Operation read(const std::string& line);

  const std::string& name() const { return name_; }

  /// Throws ScriptError when the operation has no such member.
  Value operator[](const std::string& member) const;
  /// None when there is no such member.
  std::optional<Value> find(const std::string& member) const;

  /// The members of "args"; throws ScriptError unless there are exactly `count`. No "args" counts as none.
  std::vector<Value> arguments(std::size_t count) const;

 private:
  Json object_;
  std::string name_;
};

}  // namespace tarsil::cli
