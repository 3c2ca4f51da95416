#include "tools/tarsil/commands.hpp"

#include "tools/tarsil/cable/CableCommand.hpp"
#include "tools/tarsil/check/CheckCommand.hpp"
#include "tools/tarsil/console/ConsoleCommand.hpp"
#include "tools/tarsil/devices/DevicesCommand.hpp"
#include "tools/tarsil/ports/PortsCommand.hpp"
#include "tools/tarsil/protocols/ProtocolsCommand.hpp"
#include "tools/tarsil/replay/ReplayCommand.hpp"
#include "tools/tarsil/report/ReportCommand.hpp"
#include "tools/tarsil/run/RunCommand.hpp"
#include "tools/tarsil/send/SendCommand.hpp"
#include "tools/tarsil/simulate/SimulateCommand.hpp"
#include "tools/tarsil/stop/StopCommand.hpp"

namespace tarsil::cli {

std::vector<std::unique_ptr<Command>> commands() {
  std::vector<std::unique_ptr<Command>> all;
  all.push_back(std::make_unique<DevicesCommand>());
  all.push_back(std::make_unique<PortsCommand>());
  all.push_back(std::make_unique<CheckCommand>());
  all.push_back(std::make_unique<ConsoleCommand>());
  all.push_back(std::make_unique<ProtocolsCommand>());
  all.push_back(std::make_unique<SimulateCommand>());
  all.push_back(std::make_unique<CableCommand>());
  all.push_back(std::make_unique<RunCommand>());
  all.push_back(std::make_unique<StopCommand>());
  all.push_back(std::make_unique<ReportCommand>());
  all.push_back(std::make_unique<SendCommand>());
  all.push_back(std::make_unique<ReplayCommand>());
  return all;
}

}  // namespace tarsil::cli
