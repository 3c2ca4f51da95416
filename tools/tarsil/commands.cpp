#include "tools/tarsil/commands.hpp"

#include "tools/tarsil/replay/ReplayCommand.hpp"

namespace tarsil::cli {

std::vector<std::unique_ptr<Command>> commands() {
  std::vector<std::unique_ptr<Command>> all;
  all.push_back(std::make_unique<ReplayCommand>());
  return all;
}

}  // namespace tarsil::cli
