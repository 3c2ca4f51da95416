#include "tools/tarsil/run/RunCommand.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

#include "simulators/bluetooth/hostCentral.hpp"
#include "simulators/physics/Patient.hpp"
#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/Interruption.hpp"
#include "tools/tarsil/numberBetween.hpp"
#include "tools/tarsil/report/Report.hpp"
#include "tools/tarsil/run/LibraryStopped.hpp"
#include "tools/tarsil/run/LiveView.hpp"
#include "tools/tarsil/run/PartnerProcesses.hpp"
#include "tools/tarsil/run/PartnersInProcess.hpp"
#include "tools/tarsil/run/PlainView.hpp"
#include "tools/tarsil/run/RecordingRegistry.hpp"
#include "tools/tarsil/run/Session.hpp"
#include "tools/tarsil/run/SessionHooks.hpp"
#include "tools/tarsil/run/Traffic.hpp"
#include "tools/tarsil/run/chosenPort.hpp"
#include "tools/tarsil/run/protocolNamed.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;

/// Tells the simulated monitors what the commanded load demands of the patient.
class DemandTeller {
 public:
  DemandTeller(Journal& journal, StressDeviceType kind, Partners& partners) {
    journal.addReader([this, kind, &partners](const Entry& entry) {
      if (entry.what == "setLoad") tell(kind, partners, entry.values.at(0), entry.values.at(1));
      if (entry.what == "stopStressDevice") tell(kind, partners, 0, 0);
    });
  }

 private:
  void tell(StressDeviceType kind, Partners& partners, float load, float grade) {
    if (kind == StressDeviceType::Treadmill) patient_.walk(load, grade);
    if (kind == StressDeviceType::Ergometer) patient_.cycle(load);
    partners.demand(std::max(1.0, patient_.demand()));
  }

  simulators::Patient patient_;
};

constexpr const char* overBluetooth = "bluetooth";

/// What a simulated Bluetooth oximeter measures: a patient at rest, with a finger that moves now and then.
std::uint8_t restingSaturation() {
  static int measurement = 0;
  return ++measurement % 8 == 0 ? 97 : 98;
}

std::string modelOf(const std::string& exercise) {
  return exercise.substr(0, exercise.find('@'));
}

StressDeviceType kindOf(const std::string& model) {
  auto& station = StressECGDeviceManager::share();
  for (const std::string& kind : station.getDeivceType()) {
    const auto devices = station.getDeviceByType(kind).value();
    for (const auto& device : devices) {
      if (device->name == model) return *stressDeviceTypeFromRawValue(kind);
    }
  }
  throw CommandFailure(badInput,
                       fmt::format("no exercise device is called \"{}\"; see `tarsil devices`", model));
}

void checkSpeeds(const Protocol& protocol, const std::string& model) {
  const float slowest = traitsOf(model, protocol.device).slowest;
  for (const Phase& phase : protocol.phases) {
    if (phase.load == 0 || phase.load >= slowest) continue;
    throw CommandFailure(badInput,
                         fmt::format("the protocol \"{}\" has {:.1f} km/h; {} cannot be set below {:.1f}",
                                     protocol.name, phase.load, model, slowest));
  }
}

}  // namespace

void RunCommand::declare(CLI::App& command) {
  command.add_option("--exercise", exercise_, "MODEL@PORT, or MODEL alone with --simulate")
      ->capture_default_str();
  command.add_option("--bp", bp_, "Port of a Tango blood-pressure monitor");
  command.add_option("--spo2", spo2_, "Port of a MEDXING pulse oximeter, or bluetooth");
  command.add_option("--protocol", protocol_,
                     fmt::format("One of {}, or a file", fmt::join(builtInProtocols(), ", ")));
  command.add_flag("--simulate", simulate_, "Drive a simulated station: exercise device, Tango and oximeter");
  command.add_option("--speedup", speedup_, "Let a simulated station live this much faster")
      ->check(numberBetween(1, 1e6));
  command.add_option("--report", report_, "Folder for session.csv, session.jsonl and report.html");
}

ExitCode RunCommand::run() {
  if (speedup_ != 1 && !simulate_)
    throw CommandFailure(badInput, "only a simulated station can live faster: add --simulate");
  // A reader of our output, or a simulated device, that goes away must not take the process with it, nor a
  // report that is not allowed to grow.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  std::optional<VirtualTime> time;
  if (speedup_ != 1) time.emplace(std::chrono::system_clock::now());

  // Before anything asks for a port.
  const auto traffic = std::make_shared<Traffic>();
  SerialDeviceRegistry::exchangeShared(
      std::make_shared<RecordingRegistry>(SerialDeviceRegistry::shared(), traffic));

  const Protocol protocol = chosenProtocol();
  Session* running = nullptr;
  int interruptions = 0;
  const Interruption interruption([&] {
    if (!running) return;
    if (++interruptions == 1) return running->stop(interrupted, "interrupted");
    running->abandon(interrupted, "interrupted again: closing at once");
  });

  const auto partners = makePartners();
  Journal journal;
  const SessionHooks hooks(journal);
  const bool isLive = isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
  std::optional<PlainView> plainView;
  if (!isLive) plainView.emplace(journal);
  const Station::Plan plan = planFor(partners.get());
  std::optional<Report> report;
  if (!report_.empty()) report.emplace(report_, protocol, plan, journal, traffic);
  Station station(plan, journal);
  std::optional<DemandTeller> teller;
  if (partners) teller.emplace(journal, protocol.device, *partners);
  Session session(protocol, station, journal);
  if (report) report->onFailure = [&](const std::string& reason) { session.stop(reportFailed, reason); };
  std::optional<LiveView> liveView;
  if (isLive) liveView.emplace(session, station, journal);
  running = &session;
  session.begin();
  while (!session.isOver()) keepGoing(session, time ? &*time : nullptr);
  running = nullptr;
  liveView.reset();
  if (report) finish(*report, session.result());
  if (session.result() != succeeded) throw CommandFailure(session.result(), session.reason());
  return succeeded;
}

void RunCommand::finish(Report& report, ExitCode result) {
  report.onFailure = nullptr;
  report.finish(result);
  if (report.failure()) throw CommandFailure(reportFailed, *report.failure());
}

Protocol RunCommand::chosenProtocol() const {
  const StressDeviceType kind = kindOf(modelOf(exercise_));
  const std::string standard = kind == StressDeviceType::Treadmill ? "bruce" : "25-watt-steps";
  Protocol protocol = protocolNamed(protocol_.empty() ? standard : protocol_);
  if (protocol.device != kind) {
    throw CommandFailure(badInput, fmt::format("the protocol \"{}\" is not for a device such as {}",
                                               protocol.name, modelOf(exercise_)));
  }
  checkSpeeds(protocol, modelOf(exercise_));
  return protocol;
}

std::unique_ptr<Partners> RunCommand::makePartners() const {
  if (!simulate_) return nullptr;
  if (speedup_ != 1) return std::make_unique<PartnersInProcess>();
  return std::make_unique<PartnerProcesses>();
}

Station::Plan RunCommand::planFor(Partners* partners) const {
  Station::Plan plan = planWithoutOximeter(partners);
  if (spo2_ == overBluetooth) {
    plan.makeCentral = [this] { return oximeterCentral(); };
  } else if (partners) {
    partners->add("MEDXINGPort", "simulated-spo2");
    plan.oximeterPort = "simulated-spo2";
  } else if (!spo2_.empty()) {
    plan.oximeterPort = chosenPort(spo2_);
  }
  return plan;
}

std::shared_ptr<BluetoothCentral> RunCommand::oximeterCentral() const {
  // Only a simulated one lives in virtual time.
  if (speedup_ != 1) return simulatedCentral(restingSaturation).central;
  const HostCentral found = hostCentral(restingSaturation);
  // A patient's values must not be made up.
  if (found.isSimulated && !simulate_) throw CommandFailure(portNotOpened, "there is no Bluetooth adapter");
  return found.central;
}

Station::Plan RunCommand::planWithoutOximeter(Partners* partners) const {
  const std::string model = modelOf(exercise_);
  if (partners) {
    partners->add(model, "simulated-exercise");
    partners->add("Tango", "simulated-bp");
    return {.model = model, .port = "simulated-exercise", .pressurePort = "simulated-bp"};
  }
  const std::size_t at = exercise_.find('@');
  if (at == std::string::npos)
    throw CommandFailure(badInput, "name the exercise device's port: --exercise MODEL@PORT");
  Station::Plan plan{.model = model, .port = chosenPort(exercise_.substr(at + 1))};
  if (!bp_.empty()) plan.pressurePort = chosenPort(bp_);
  return plan;
}

void RunCommand::keepGoing(Session& session, VirtualTime* time) const {
  try {
    if (time) return liveFaster(session, *time);
    RunLoop::main().runUntil([&] { return session.isOver(); }, 24h);
  } catch (const LibraryStopped& stopped) {
    // The drivers stay usable, and a belt that moves must be stopped first.
    session.stop(deviceFault, stopped.what());
  }
}

void RunCommand::liveFaster(const Session& session, VirtualTime& time) const {
  constexpr Duration step = 100ms;
  auto next = std::chrono::steady_clock::now();
  while (!session.isOver()) {
    time.advance(step);
    next += std::chrono::duration_cast<std::chrono::steady_clock::duration>(step / speedup_);
    std::this_thread::sleep_until(next);
  }
}

}  // namespace tarsil::cli
