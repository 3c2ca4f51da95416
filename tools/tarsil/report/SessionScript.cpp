#include "tools/tarsil/report/SessionScript.hpp"

#include <nlohmann/json.hpp>
#include <utility>

#include "tarsil/support/floatText.hpp"
#include "tools/tarsil/report/reportText.hpp"

namespace tarsil::cli {
namespace {

using Json = nlohmann::ordered_json;

std::string text(const Json& operation) {
  return operation.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

std::string text(const char* name, Json arguments = Json::array()) {
  Json operation{{"op", name}};
  if (!arguments.empty()) operation["args"] = std::move(arguments);
  return text(operation);
}

const char* facadeRole(Role role) {
  if (role == Role::pressure) return "BP";
  return role == Role::oximeter ? "SpO2" : "device";
}

/// A float in as many digits as it needs, not in those of the double that it becomes.
Json number(float value) {
  return Json::parse(decimalText(value), nullptr, false);
}

std::string command(const Entry& entry) {
  // A script's station has ports only.
  if (entry.what == "scan") return "# an oximeter over Bluetooth: its values are in session.csv\n";
  if (entry.what == "openPort") return text("openPort", Json::array({facadeRole(entry.role)}));
  if (entry.what == "setLoad")
    return text("setLoad", Json::array({number(entry.values[0]), number(entry.values[1])}));
  const bool isForPressure = entry.what == "startBP" || entry.what == "requestBP" || entry.what == "breakBP";
  if (isForPressure) return text(entry.what.c_str(), Json::array({entry.role == Role::pressure}));
  return text(entry.what.c_str());
}

}  // namespace

SessionScript::SessionScript(Station::Plan plan, StressDeviceType kind)
    : plan_(std::move(plan)), kind_(kind), ports_{plan_.port} {
  if (plan_.pressurePort) ports_.push_back(*plan_.pressurePort);
  if (plan_.oximeterPort) ports_.push_back(*plan_.oximeterPort);
}

std::string SessionScript::beginning() const {
  std::string lines = text({{"op", "new"}, {"device", "manager"}, {"drive", true}}) +
                      text({{"op", "ports"}, {"names", ports_}}) + text("getDeivceType") +
                      text("getDeviceByType", Json::array({rawValue(kind_)})) +
                      text("getSelected", Json::array({plan_.model, "device"})) +
                      text("getPort", Json::array({false})) + text("port") +
                      text({{"op", "kiv"}, {"role", "device"}}) +
                      text("selectedPort", Json::array({plan_.port, "device"}));
  if (plan_.pressurePort) {
    lines += text("selectedPort", Json::array({*plan_.pressurePort, "BP"})) +
             text({{"op", "kiv"}, {"role", "BP"}});
  }
  if (plan_.oximeterPort) {
    lines += text("getSelected", Json::array({"MEDXINGPort", "SpO2"})) +
             text({{"op", "kiv"}, {"role", "SpO2"}}) + text("getPort", Json::array({true})) +
             text("selectedPort", Json::array({*plan_.oximeterPort, "SpO2"}));
  }
  return lines;
}

std::string SessionScript::lines(const Entry& entry) {
  if (entry.kind == Entry::Kind::asked) return advanceTo(entry.at) + command(entry);
  if (entry.what == "removed") return advanceTo(entry.at) + removal(entry.role);
  return "";
}

std::string SessionScript::lines(const Chunk& chunk, Duration at, Role role) {
  if (chunk.direction == Chunk::Direction::sent) return "";
  return advanceTo(at) + text({{"op", "recv"}, {"role", facadeRole(role)}, {"hex", hexText(chunk.bytes)}});
}

std::string SessionScript::ending(Duration at) {
  return advanceTo(at);
}

std::string SessionScript::advanceTo(Duration at) {
  // Bytes are stamped where they are read, which may be a moment before the last entry.
  if (at <= now_) return "";
  const Duration passed = at - std::exchange(now_, at);
  return text({{"op", "advance"}, {"s", inSeconds(passed)}});
}

std::string SessionScript::removal(Role role) {
  const std::string gone = role == Role::pressure   ? plan_.pressurePort.value_or("")
                           : role == Role::oximeter ? plan_.oximeterPort.value_or("")
                                                    : plan_.port;
  std::erase(ports_, gone);
  return text({{"op", "ports"}, {"names", ports_}});
}

}  // namespace tarsil::cli
