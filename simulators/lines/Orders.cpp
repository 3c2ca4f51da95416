#include "simulators/lines/Orders.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <utility>
#include <vector>

#include "simulators/physics/Patient.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/support/numberText.hpp"

namespace tarsil::simulators {
namespace {

/// None for a word that names no way.
std::vector<Way> waysNamed(const std::string& word) {
  if (word == "replies") return {Way::replies};
  if (word == "commands") return {Way::commands};
  if (word == "both") return {Way::replies, Way::commands};
  return {};
}

std::optional<SimulatedDevice::Button> buttonNamed(const std::string& word) {
  using Button = SimulatedDevice::Button;
  if (word == "start") return Button::start;
  if (word == "stop") return Button::stop;
  if (word == "emergency") return Button::emergency;
  return std::nullopt;
}

}  // namespace

Orders::Orders(int descriptor, SimulatedDevice& device, Patient& patient, PseudoTerminalLine& line)
    : descriptor_(descriptor), device_(device), patient_(patient), line_(line) {
  source_ = DispatchSource::read(descriptor_, DispatchQueue::main());
  source_->setEventHandler([this] { read(); });
  source_->resume();
}

Orders::~Orders() {
  source_->cancel();
}

void Orders::read() {
  std::array<char, 512> buffer{};
  const ssize_t count = ::read(descriptor_, buffer.data(), buffer.size());
  if (count <= 0) {
    source_->cancel();
    RunLoop::main().stop();
    return;
  }
  pending_.append(buffer.data(), static_cast<std::size_t>(count));
  for (std::size_t end = pending_.find('\n'); end != std::string::npos; end = pending_.find('\n')) {
    const std::string line = pending_.substr(0, end);
    pending_.erase(0, end + 1);
    obeyLine(line);
  }
}

void Orders::obeyLine(const std::string& line) {
  const std::size_t blank = line.find(' ');
  const std::string argument = blank == std::string::npos ? std::string() : line.substr(blank + 1);
  if (!obey(line.substr(0, blank), argument)) std::fprintf(stderr, "not an order: %s\n", line.c_str());
}

bool Orders::obey(const std::string& order, const std::string& argument) {
  return obeyOnCable(order, argument) || obeyOnDevice(order, argument);
}

bool Orders::obeyOnCable(const std::string& order, const std::string& argument) {
  if (order == "disconnect" && argument.empty()) {
    line_.unplug();
  } else if (order == "connect" && argument.empty()) {
    line_.plugIn();
    std::puts(line_.path().c_str());
    std::fflush(stdout);
  } else if (order == "mute" || order == "unmute") {
    const auto ways = waysNamed(argument);
    for (const Way way : ways) line_.cable()[way].mute(order == "mute");
    return !ways.empty();
  } else if (const auto fault = byteFaultNamed(order)) {
    const auto ways = waysNamed(argument);
    for (const Way way : ways) line_.cable()[way].cue(*fault);
    return !ways.empty();
  } else {
    return false;
  }
  return true;
}

bool Orders::obeyOnDevice(const std::string& order, const std::string& argument) {
  const bool isSwitch = argument == "on" || argument == "off";
  if (order == "silence" && isSwitch) {
    device_.beSilent(argument == "on");
  } else if (order == "noise" && isSwitch) {
    device_.beNoisy(argument == "on");
  } else if (order == "drop" && argument.empty()) {
    device_.dropAByte();
  } else if (order == "refuse") {
    const auto codes = device_.refusalCodes();
    if (std::find(codes.begin(), codes.end(), argument) == codes.end()) return false;
    device_.refuseCommands(argument);
  } else if (order == "accept" && argument.empty()) {
    device_.refuseCommands(std::nullopt);
  } else if (order == "effort") {
    const auto mets = readDouble(argument);
    if (!mets || *mets < 1.0) return false;
    patient_.setEffort(*mets);
  } else if (order == "press" || order == "release") {
    const auto button = buttonNamed(argument);
    return button && (order == "press" ? device_.press(*button) : device_.release(*button));
  } else if (order == "unheard" && (argument == "stop" || argument == "go")) {
    return device_.stopWhenUnheard(argument == "stop");
  } else if (order == "history" && argument.empty()) {
    for (const TruthAt& entry : device_.history()) std::puts(text(entry).c_str());
    std::puts("");
    std::fflush(stdout);
  } else if (order == "status" && argument.empty()) {
    std::puts(device_.status().c_str());
    std::fflush(stdout);
  } else if (order == "quit" && argument.empty()) {
    RunLoop::main().stop();
  } else {
    return false;
  }
  return true;
}

}  // namespace tarsil::simulators
