#include "simulators/lines/Orders.hpp"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <utility>
#include <vector>

#include "tarsil/runtime/RunLoop.hpp"

namespace tarsil::simulators {
namespace {

/// None for a word that names no way.
std::vector<Way> waysNamed(const std::string& word) {
  if (word == "replies") return {Way::replies};
  if (word == "commands") return {Way::commands};
  if (word == "both") return {Way::replies, Way::commands};
  return {};
}

std::string text(const CableWay::Count& count) {
  return std::to_string(count.put) + " bytes, " + std::to_string(count.lost) + " lost, " +
         std::to_string(count.repeated) + " doubled, " + std::to_string(count.changed) + " changed, " +
         std::to_string(count.added) + " added";
}

}  // namespace

Orders::Orders(int descriptor, PseudoTerminalEnd& hostEnd, Obey others)
    : descriptor_(descriptor), hostEnd_(hostEnd), others_(std::move(others)) {
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
  const std::string order = line.substr(0, blank);
  const std::string argument = blank == std::string::npos ? std::string() : line.substr(blank + 1);
  if (obey(order, argument) || (others_ && others_(order, argument))) return;
  std::fprintf(stderr, "not an order: %s\n", line.c_str());
}

bool Orders::obey(const std::string& order, const std::string& argument) {
  Cable& cable = hostEnd_.cable();
  if (order == "disconnect" && argument.empty()) {
    hostEnd_.unplug();
  } else if (order == "connect" && argument.empty()) {
    hostEnd_.plugIn();
    std::puts(hostEnd_.path().c_str());
    std::fflush(stdout);
  } else if (order == "mute" || order == "unmute") {
    const auto ways = waysNamed(argument);
    for (const Way way : ways) cable[way].mute(order == "mute");
    return !ways.empty();
  } else if (const auto fault = byteFaultNamed(order)) {
    const auto ways = waysNamed(argument);
    for (const Way way : ways) cable[way].cue(*fault);
    return !ways.empty();
  } else if (order == "count" && argument.empty()) {
    std::puts(("replies: " + text(cable.replies().count()) + "; commands: " + text(cable.commands().count()))
                  .c_str());
    std::fflush(stdout);
  } else if (order == "quit" && argument.empty()) {
    RunLoop::main().stop();
  } else {
    return false;
  }
  return true;
}

}  // namespace tarsil::simulators
