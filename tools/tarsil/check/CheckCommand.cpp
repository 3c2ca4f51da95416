#include "tools/tarsil/check/CheckCommand.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <set>

#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/Interruption.hpp"
#include "tools/tarsil/check/LineCheck.hpp"
#include "tools/tarsil/didYouMean.hpp"
#include "tools/tarsil/numberBetween.hpp"
#include "tools/tarsil/run/PrintedLines.hpp"
#include "tools/tarsil/run/chosenPort.hpp"
#include "tools/tarsil/run/stationNamed.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;

/// A question a second: slower than any model needs.
constexpr Duration interval = 1s;

DeviceModel modelNamed(const std::string& name) {
  std::vector<std::string> names;
  for (DeviceModel& model : standardCatalogue().models()) {
    if (!model.makeFraming) continue;
    if (model.name == name) return std::move(model);
    names.push_back(model.name);
  }
  throw CommandFailure(badInput, fmt::format("no model with a line is called \"{}\"; see `tarsil devices`{}",
                                             name, didYouMean(name, names)));
}

std::shared_ptr<const SerialDevice> deviceAt(const std::string& port) {
  const std::string name = chosenPort(port);
  std::vector<std::string> names;
  for (const auto& device : SerialDeviceRegistry::shared()->devices()) {
    if (device->terminalName == name) return device;
    names.push_back(device->terminalName.value_or(""));
  }
  throw CommandFailure(
      badInput, fmt::format("there is no port \"{}\"; see `tarsil ports`{}", port, didYouMean(port, names)));
}

std::string adapterText(const SerialDevice& device) {
  if (!device.usb) return "none that the system knows of";
  const UsbIdentity& usb = *device.usb;
  std::string text = fmt::format("{} {} ({}:{})", usb.manufacturer, usb.product, usb.vendorId, usb.productId);
  return text + (usb.serialNumber.empty() ? ", no serial number" : ", serial number " + usb.serialNumber);
}

std::string inMilliseconds(Duration duration) {
  return fmt::format("{:.0f} ms", std::chrono::duration<double, std::milli>(duration).count());
}

std::string answersText(const LineCheck& check) {
  if (!check.isAsked()) return "nothing: it talks by itself";
  if (check.answerTimes().empty()) return fmt::format("{} times, no answer", check.asked());
  auto times = check.answerTimes();
  std::sort(times.begin(), times.end());
  return fmt::format("{} times, {} answers, after {} (median), {} at most", check.asked(), times.size(),
                     inMilliseconds(times[times.size() / 2]), inMilliseconds(times.back()));
}

void print(const LineCheck& check) {
  const auto line = [](const char* name, const std::string& text) {
    std::cout << fmt::format("  {:<10} {}\n", name, text);
  };
  const SerialDevice& device = check.device();
  std::cout << check.model().name << " on " << device.terminalName.value_or("") << '\n';
  line("path", device.calloutPath.value_or("-"));
  if (device.stablePath) line("", *device.stablePath);
  line("adapter", adapterText(device));
  line("line", check.settings());
  if (check.isOpen()) {
    line("asked", answersText(check));
    line("received",
         fmt::format("{} bytes, {} replies; {} bytes lost, {} replies with a wrong check",
                     check.receivedBytes(), check.frames(), check.lostBytes(), check.failedChecks()));
  }
  const auto reasons = check.reasons();
  if (!reasons.empty()) return line("no", fmt::format("{}", fmt::join(reasons, "; ")));
  if (check.isRead()) {
    std::cout << "  yes\n";
  } else {
    line("yes", "it opens; " + check.model().unseen());
  }
}

}  // namespace

void CheckCommand::declare(CLI::App& command) {
  command.add_option("DEVICE", places_, "MODEL@PORT, one or several");
  command.add_option("--station", station_, "Every device of a station's file that has a line");
  command.add_option("--seconds", seconds_, "Ask for so long")
      ->check(numberBetween(1, 3600))
      ->capture_default_str();
}

std::shared_ptr<LineCheck> CheckCommand::checkOf(const std::string& place) const {
  const std::size_t at = place.find('@');
  if (at == std::string::npos)
    throw CommandFailure(badInput, fmt::format("\"{}\" names no port: MODEL@PORT", place));
  return std::make_shared<LineCheck>(modelNamed(place.substr(0, at)), deviceAt(place.substr(at + 1)));
}

void CheckCommand::takeStation() {
  if (station_.empty()) return;
  const Station station = stationNamed(station_);
  places_.push_back(station.exercise);
  if (!station.monitor.empty()) places_.push_back("Tango@" + station.monitor);
  if (!station.oximeter.empty() && station.oximeter != "bluetooth")
    places_.push_back("MEDXINGPort@" + station.oximeter);
}

ExitCode CheckCommand::run() {
  std::signal(SIGPIPE, SIG_IGN);
  takeStation();
  if (places_.empty()) throw CommandFailure(badInput, "name a device, MODEL@PORT, or a station");
  std::vector<std::shared_ptr<LineCheck>> checks;
  std::set<std::string> paths;
  for (const std::string& place : places_) {
    checks.push_back(checkOf(place));
    if (!paths.insert(checks.back()->device().calloutPath.value_or("")).second)
      throw CommandFailure(badInput, "the port \"" + checks.back()->device().terminalName.value_or("") +
                                         "\" cannot serve two devices");
  }
  const PrintedLines unheard;  // what drivers print is no finding
  bool isInterrupted = false;
  const Interruption interruption([&] { isInterrupted = true; });
  for (const auto& check : checks) check->open();
  const auto questions = Timer::scheduled(interval, true, [&](Timer&) {
    for (const auto& check : checks) check->ask();
  });
  const auto wait = [&](Duration duration) {
    RunLoop::main().runUntil([&] { return isInterrupted; }, duration);
  };
  wait(std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds_)) + interval / 2);
  questions->invalidate();
  wait(interval / 2);  // for the last answer
  for (const auto& check : checks) check->close();
  RunLoop::main().runUntil(
      [&] {
        return std::all_of(checks.begin(), checks.end(), [](auto& check) { return check->isClosed(); });
      },
      3s);
  if (isInterrupted) throw CommandFailure(interrupted, "interrupted");

  std::vector<std::string> faulty;
  for (const auto& check : checks) {
    print(*check);
    const auto reasons = check->reasons();
    if (!reasons.empty())
      faulty.push_back(fmt::format("{}: {}", check->model().name, fmt::join(reasons, "; ")));
  }
  if (!faulty.empty()) throw CommandFailure(portNotOpened, fmt::format("{}", fmt::join(faulty, "; ")));
  return succeeded;
}

}  // namespace tarsil::cli
