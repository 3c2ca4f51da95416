#include "tools/tarsil/stop/StopCommand.hpp"

#include <fmt/format.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <variant>

#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/Interruption.hpp"
#include "tools/tarsil/exerciseModel.hpp"
#include "tools/tarsil/numberBetween.hpp"
#include "tools/tarsil/run/PlainView.hpp"
#include "tools/tarsil/run/PrintedLines.hpp"
#include "tools/tarsil/run/chosenPort.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;

/// What the station has said so far.
struct Seen {
  bool isOpen = false;
  bool isStanding = false;
  /// The model does not report it.
  bool isUnseen = false;
  std::string lineFailure;

  void hear(const Event& event) {
    if (std::holds_alternative<LineOpened>(event.what)) isOpen = true;
    if (std::holds_alternative<StandstillSeen>(event.what)) isStanding = true;
    if (std::holds_alternative<StandstillUnseen>(event.what)) isUnseen = true;
    if (const auto* failed = std::get_if<LineFailed>(&event.what)) lineFailure = failed->text;
  }
};

}  // namespace

void StopCommand::declare(CLI::App& command) {
  command.add_option("DEVICE", device_, "MODEL@PORT")->required();
  command.add_option("--patience", patience_, "Give up after so many seconds")
      ->check(numberBetween(1, 3600))
      ->capture_default_str();
}

ExitCode StopCommand::run() {
  std::signal(SIGPIPE, SIG_IGN);
  const std::size_t at = device_.find('@');
  if (at == std::string::npos) throw CommandFailure(badInput, "name the device and its port: MODEL@PORT");
  const DeviceModel known = exerciseModel(device_.substr(0, at));
  const std::string& model = known.name;

  PrintedLines printed;
  const auto opened =
      // A belt that has to stop waits for no file.
      GuardedStation::open({.exercise = {.model = model, .port = chosenPort(device_.substr(at + 1))},
                            .journal = std::nullopt});
  if (!opened) throw CommandFailure(badInput, opened.answer().reason());
  const auto& station = opened.station();
  printed.setStation(station);

  Seen seen;
  PlainView view(kindOf(known));
  station->onEvent([&](const Event& event) {
    seen.hear(event);
    view.show(event);
  });
  bool isInterrupted = false;
  const Interruption interruption([&] { isInterrupted = true; });
  // It goes out as soon as the port is open, and again every second.
  static_cast<void>(station->stop());
  const auto isSettled = [&] { return seen.isStanding || seen.isUnseen || isInterrupted; };
  RunLoop::main().runUntil(isSettled,
                           std::chrono::duration_cast<Duration>(std::chrono::duration<double>(patience_)));
  station->close();
  RunLoop::main().runUntil([&] { return station->isClosed(); }, 3s);

  if (seen.isStanding || seen.isUnseen) return succeeded;
  if (!seen.isOpen)
    throw CommandFailure(portNotOpened,
                         seen.lineFailure.empty() ? "the port did not open" : seen.lineFailure);
  if (isInterrupted) throw CommandFailure(interrupted, "interrupted: " + model + " was not seen to stand");
  throw CommandFailure(deviceFault, model + " was not seen to stand: look at it");
}

}  // namespace tarsil::cli
