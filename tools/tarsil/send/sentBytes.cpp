#include "tools/tarsil/send/sentBytes.hpp"

#include "tarsil/runtime/Clock.hpp"
#include "tools/tarsil/replay/Operation.hpp"
#include "tools/tarsil/replay/ReplaySession.hpp"

namespace tarsil::cli {
namespace {

constexpr const char* errorSelector = "onErrorWithCode:details:";

void note(const Json& event, std::chrono::duration<double> afterCommand, CommandEffect& effect) {
  if (event[0] == "send") effect.writes.push_back({afterCommand, event[1]});
  if (event[0] == "fatal") effect.fatal = event[1];
  if (event[0] == "call" && event[2] == errorSelector) effect.errors.emplace_back(event[3], event[4]);
}

Json arguments(const DeviceCommand& command) {
  Json list = Json::array();
  for (const float value : command.arguments) list.push_back(number(value));
  return list;
}

}  // namespace

std::vector<CommandEffect> sentBytes(const std::string& model, const std::vector<DeviceCommand>& commands,
                                     std::chrono::duration<double> wait) {
  std::vector<CommandEffect> effects;
  Clock::Instant began;
  ReplaySession session([&](const Json& event) {
    if (!effects.empty()) note(event, Clock::now() - began, effects.back());
  });
  session.perform(Operation(Json{{"op", "new"}, {"device", model}}));
  for (const auto& command : commands) {
    effects.emplace_back();
    began = Clock::now();
    session.perform(Operation(Json{{"op", command.name}, {"args", arguments(command)}}));
    session.perform(Operation(Json{{"op", "advance"}, {"s", wait.count()}}));
  }
  return effects;
}

}  // namespace tarsil::cli
