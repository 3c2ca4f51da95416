#include "tools/tarsil/run/RunCommand.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <set>
#include <thread>

#include "simulators/physics/Patient.hpp"
#include "tarsil/platform/SerialDeviceRegistry.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tarsil/support/numberText.hpp"
#include "tools/bluetooth/hostCentral.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/Interruption.hpp"
#include "tools/tarsil/exerciseModel.hpp"
#include "tools/tarsil/numberBetween.hpp"
#include "tools/tarsil/page/PageServer.hpp"
#include "tools/tarsil/page/PageView.hpp"
#include "tools/tarsil/report/SessionFolder.hpp"
#include "tools/tarsil/report/SessionRecord.hpp"
#include "tools/tarsil/run/LiveView.hpp"
#include "tools/tarsil/run/PartnerProcesses.hpp"
#include "tools/tarsil/run/PartnersInProcess.hpp"
#include "tools/tarsil/run/PlainView.hpp"
#include "tools/tarsil/run/PrintedLines.hpp"
#include "tools/tarsil/run/chosenPort.hpp"
#include "tools/tarsil/run/protocolNamed.hpp"
#include "tools/tarsil/run/stationNamed.hpp"

namespace tarsil::cli {
namespace {

using namespace std::chrono_literals;

/// The station is told this often that the program lives.
constexpr Duration heartbeatInterval = 100ms;

/// Tells the simulated monitors what the commanded load demands of the patient.
class DemandTeller {
 public:
  explicit DemandTeller(Partners& partners) : partners_(partners) {}

  void hear(const Event& event, StressDeviceType kind) {
    const auto* asked = std::get_if<Asked>(&event.what);
    if (!asked || (asked->command != tarsil::Command::setLoad && asked->command != tarsil::Command::stop))
      return;
    // A stop has no load: the patient rests.
    if (kind == StressDeviceType::Treadmill) patient_.walk(asked->load.speed, asked->load.grade);
    if (kind == StressDeviceType::Ergometer) patient_.cycle(asked->load.power);
    partners_.demand(std::max(1.0, patient_.demand()));
  }

 private:
  Partners& partners_;
  simulators::Patient patient_;
};

constexpr const char* overBluetooth = "bluetooth";
/// Stands for the demo protocol that the model carries.
constexpr const char* anyDemo = "demo";

/// What a simulated Bluetooth oximeter measures: a patient at rest, with a finger that moves now and then.
std::uint8_t restingSaturation() {
  static int measurement = 0;
  return ++measurement % 8 == 0 ? 97 : 98;
}

std::string modelOf(const std::string& exercise) {
  return exercise.substr(0, exercise.find('@'));
}

/// Those that come with the program and are for such a device, without the ones to be watched only.
std::vector<std::string> protocolsFor(StressDeviceType kind) {
  std::vector<std::string> names;
  for (const std::string& name : builtInProtocols()) {
    if (!name.starts_with("demo-") && protocolNamed(name).device == kind) names.push_back(name);
  }
  return names;
}

/// The short protocols that are there to be watched.
std::vector<Protocol> demoProtocols(StressDeviceType kind) {
  std::vector<Protocol> protocols;
  for (const std::string& name : builtInProtocols()) {
    if (!name.starts_with("demo-")) continue;
    if (Protocol protocol = protocolNamed(name); protocol.device == kind)
      protocols.insert(protocols.begin(), std::move(protocol));
  }
  return protocols;
}

/// "FTDI USB UART, serial number A9XYZ"; empty for a port that is no adapter's.
std::string adapterAt(const std::string& port) {
  for (const auto& device : SerialDeviceRegistry::shared()->devices()) {
    if (device->terminalName != port || !device->usb) continue;
    const UsbIdentity& usb = *device->usb;
    const std::string name = fmt::format("{} {}", usb.manufacturer, usb.product);
    return name + ", " +
           (usb.serialNumber.empty() ? "no serial number" : "serial number " + usb.serialNumber);
  }
  return "";
}

/// Says at once why a port does not open, and what to do about it. One that vanishes later is the view's.
class LineComplaints {
 public:
  void hear(const Event& event) {
    if (std::holds_alternative<LineOpened>(event.what)) opened_.insert(event.source);
    const auto* failed = std::get_if<LineFailed>(&event.what);
    if (failed && !opened_.contains(event.source)) std::cerr << "tarsil: " << failed->text << std::endl;
  }

 private:
  std::set<Source> opened_;
};

ExitCode exitCodeOf(ExerciseTest::Outcome outcome) {
  switch (outcome) {
    case ExerciseTest::Outcome::completed:
      return succeeded;
    case ExerciseTest::Outcome::incomplete:
      return somethingMissing;
    case ExerciseTest::Outcome::notBegun:
      return portNotOpened;
    case ExerciseTest::Outcome::stopped:
      return interrupted;
    case ExerciseTest::Outcome::lineLost:
      return portVanished;
    case ExerciseTest::Outcome::protectiveStop:
      return deviceFault;
  }
  return failed;
}

/// For the page.
SessionEnd endOf(const ExerciseTest& test, const SessionFolder* folder) {
  const bool isComplete = test.outcome() == ExerciseTest::Outcome::completed;
  const std::optional<std::string> failure = folder ? folder->failure() : std::nullopt;
  return {.text = (isComplete ? "completed" : test.reason()) + (failure ? "; " + *failure : ""),
          .isGood = isComplete && !failure,
          .folder = folder ? folder->path().string() : ""};
}

}  // namespace

void RunCommand::declare(CLI::App& command) {
  declared_ = &command;
  command.add_option("--station", station_, "A station of a file: models, ports and limits");
  command.add_option("--exercise", exercise_, "MODEL@PORT, or MODEL alone with --simulate")
      ->capture_default_str();
  command.add_option("--bp", bp_, "Port of a Tango blood-pressure monitor");
  command.add_option("--spo2", spo2_, "Port of a MEDXING pulse oximeter, or bluetooth");
  command.add_option("--protocol", protocol_,
                     fmt::format("One of {}, or a file; demo: a short one that the model carries",
                                 fmt::join(builtInProtocols(), ", ")));
  command.add_flag("--simulate", simulate_, "Drive a simulated station: exercise device, Tango and oximeter");
  command.add_option("--speedup", speedup_, "Let a simulated station live this much faster")
      ->check(numberBetween(1, 1e6));
  command.add_flag("--strict", isStrict_, "Stop the exercise when the monitor or the oximeter is lost, too");
  command.add_option("--max-speed", limits_.speed.highest, "Refuse higher speeds, km/h")
      ->check(numberBetween(0.1, 25))
      ->capture_default_str();
  command.add_option("--max-grade", limits_.grade.highest, "Refuse higher grades, percent")
      ->check(numberBetween(0.1, 30))
      ->capture_default_str();
  command.add_option("--max-power", limits_.power.highest, "Refuse higher powers, watts")
      ->check(numberBetween(1, 999))
      ->capture_default_str();
  command.add_option("--report", report_, "Folder in which the session gets a folder of its own");
  command.add_flag("--no-report", keepsNothing_, "Keep nothing of the session");
  command.add_option("--patient", patient_, "Patient's id, for the report");
  command.add_option("--operator", operator_, "Operator's name, for the report");
  command.add_option("--note", note_, "A remark, for the report");
  command.add_option("--mass", mass_, "Patient's mass, kilograms: a bicycle's METs depend on it")
      ->check(numberBetween(10, 400));
  CLI::Option* const page = command.add_flag(
      "--page", hasPage_, "Show the session on a web page, too, for browsers of this machine");
  command
      .add_option("--page-port", pagePort_, "Offer the page at this port; a free one when it is not given")
      ->check(numberBetween(1, 65535))
      ->needs(page);
  command.add_flag("--page-control", pageTakesOrders_, "Let the page stop and control the session, too")
      ->needs(page);
}

void RunCommand::takeStation() {
  if (station_.empty()) return;
  if (simulate_)
    throw CommandFailure(badInput,
                         "a simulated station has its own ports: leave out --simulate or --station");
  const Station station = stationNamed(station_);
  const auto take = [this](const char* option, auto& value, const auto& given) {
    if (declared_->count(option) == 0) value = given;
  };
  take("--exercise", exercise_, station.exercise);
  take("--bp", bp_, station.monitor);
  take("--spo2", spo2_, station.oximeter);
  take("--report", report_, station.report);
  take("--strict", isStrict_, station.isStrict);
  take("--max-speed", limits_.speed.highest, station.maxSpeed.value_or(limits_.speed.highest));
  take("--max-grade", limits_.grade.highest, station.maxGrade.value_or(limits_.grade.highest));
  take("--max-power", limits_.power.highest, station.maxPower.value_or(limits_.power.highest));
}

ExitCode RunCommand::run() {
  takeStation();
  checkOptions();
  // A reader of our output, or a simulated device, that goes away must not take the process with it, nor a
  // report that is not allowed to grow.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  std::optional<VirtualTime> time;
  if (speedup_ != 1) time.emplace(std::chrono::system_clock::now());

  const auto candidates = chosenProtocols();
  askForNames();
  const auto partners = makePartners();
  GuardedStation::Plan plan = planFor(partners.get());
  const Protocol protocol = carriedOne(candidates, plan);
  const auto page = makePage();
  const auto folder = makeFolder(protocol, plan);
  plan.journal = folder ? std::optional(folder->journalFile()) : std::nullopt;
  PrintedLines printed;
  const auto opened = GuardedStation::open(plan);
  if (!opened) {
    if (folder) folder->discard();
    const Answer::Code code = opened.answer().code();
    const bool isPort = code == Answer::Code::noSuchPort;
    throw CommandFailure(code == Answer::Code::noJournal ? reportFailed : badInput,
                         opened.answer().reason() + (isPort ? "; see `tarsil ports`" : ""));
  }
  GuardedStation& station = *opened.station();
  printed.setStation(opened.station());

  const bool isLive = isatty(STDIN_FILENO) && isatty(STDOUT_FILENO) && Display::ofEnvironment().canBeDrawnOn;
  std::optional<PlainView> plainView;
  if (!isLive) plainView.emplace(protocol.device);
  // Somebody has to do something about it, and the view shows it only in passing.
  if (!isLive)
    station.onEvent([complaints = LineComplaints()](const Event& event) mutable { complaints.hear(event); });
  std::optional<DemandTeller> teller;
  if (partners) teller.emplace(*partners);
  station.onEvent([&](const Event& event) {
    if (plainView) plainView->show(event);
    if (plainView && plainView->hasJustFailed()) {
      station.note(AlarmRaised{.kind = AlarmKind::viewLost,
                               .text = "standard output takes no more lines; the exercise goes on"});
    }
    if (folder) folder->hear(event);
    if (teller) teller->hear(event, protocol.device);
  });
  // After those who write down what has happened so far.
  ExerciseTest test(opened.station(), protocol);
  std::optional<LiveView> liveView;
  if (isLive) {
    liveView.emplace(test, station, plan.exercise.model + (simulate_ ? ", SIMULATED" : ""),
                     page ? page->address().link() : "");
  }
  std::optional<PageView> pageView;
  if (page) {
    pageView.emplace(*page, test, station,
                     SessionTitle{.model = plan.exercise.model,
                                  .patient = patient_,
                                  .isSimulated = simulate_,
                                  .takesOrders = pageTakesOrders_});
  }
  const ExitCode result = go(station, test, time ? &*time : nullptr);
  liveView.reset();

  if (folder) folder->finish();
  if (pageView) pageView->end(endOf(test, folder.get()));
  if (folder) {
    if (folder->failure()) throw CommandFailure(reportFailed, *folder->failure());
    std::cout << "The session's folder: " << folder->path().string() << std::endl;
  }
  if (result != succeeded) throw CommandFailure(result, test.reason());
  return succeeded;
}

ExitCode RunCommand::go(GuardedStation& station, ExerciseTest& test, VirtualTime* time) const {
  int interruptions = 0;
  const Interruption interruption(
      [&] {
        if (++interruptions == 1) return test.stop("interrupted");
        test.abandon("interrupted again: closing at once");
      },
      // Who walks on the belt does not see the terminal.
      [&] {
        station.note(
            AlarmRaised{.kind = AlarmKind::viewLost, .text = "the terminal is gone; the exercise goes on"});
      });
  const auto heartbeat = Timer::scheduled(heartbeatInterval, true, [&](Timer&) { station.alive(); });
  test.begin();
  if (time) {
    liveFaster(test, *time);
  } else {
    RunLoop::main().runUntil([&] { return test.isOver(); }, 24h);
  }
  heartbeat->invalidate();
  return exitCodeOf(test.outcome());
}

void RunCommand::checkOptions() const {
  if (speedup_ != 1 && !simulate_)
    throw CommandFailure(badInput, "only a simulated station can live faster: add --simulate");
  if (!simulate_) {
    if (exercise_.find('@') == std::string::npos)
      throw CommandFailure(badInput, "name the exercise device's port: --exercise MODEL@PORT");
    // What a patient is taken through is somebody's decision.
    if (protocol_.empty()) {
      const auto names = protocolsFor(kindOf(exerciseModel(modelOf(exercise_))));
      throw CommandFailure(badInput, fmt::format("name the protocol: --protocol {}, or a file; see `tarsil "
                                                 "protocols`",
                                                 fmt::join(names, ", ")));
    }
    return;
  }
  const bool namesPort =
      exercise_.find('@') != std::string::npos || !bp_.empty() || (!spo2_.empty() && spo2_ != overBluetooth);
  if (namesPort)
    throw CommandFailure(badInput, "a simulated station has its own ports: leave out --simulate or the port");
}

Protocol RunCommand::carriedOne(const std::vector<Protocol>& candidates,
                                const GuardedStation::Plan& plan) const {
  for (const Protocol& candidate : candidates) {
    if (objectionsTo(candidate, plan).empty()) return candidate;
  }
  throw CommandFailure(badInput,
                       fmt::format("{}: {}", protocol_.empty() ? candidates.front().name : protocol_,
                                   fmt::join(objectionsTo(candidates.front(), plan), "; ")));
}

std::vector<Protocol> RunCommand::chosenProtocols() const {
  const StressDeviceType kind = kindOf(exerciseModel(modelOf(exercise_)));
  if (protocol_ == anyDemo) return demoProtocols(kind);
  const std::string standard = kind == StressDeviceType::Treadmill ? "bruce" : "25-watt-steps";
  Protocol protocol = protocolNamed(protocol_.empty() ? standard : protocol_);
  if (protocol.device != kind) {
    throw CommandFailure(badInput, fmt::format("the protocol \"{}\" is not for a device such as {}",
                                               protocol.name, modelOf(exercise_)));
  }
  return {std::move(protocol)};
}

std::unique_ptr<Partners> RunCommand::makePartners() const {
  if (!simulate_) return nullptr;
  if (speedup_ != 1) return std::make_unique<PartnersInProcess>();
  return std::make_unique<PartnerProcesses>();
}

GuardedStation::Plan RunCommand::planFor(Partners* partners) const {
  GuardedStation::Plan plan{.exercise = {.model = modelOf(exercise_), .port = ""},
                            .limits = limits_,
                            .auxiliariesAreVital = isStrict_};
  // Nothing real moves in virtual time, and no process could follow it.
  if (speedup_ != 1) plan.watcher = std::nullopt;
  if (partners) {
    plan.exercise.port = "simulated-exercise";
    plan.monitor = "simulated-bp";
    partners->add(plan.exercise.model, plan.exercise.port);
    partners->add("Tango", plan.monitor);
  } else {
    plan.exercise.port = chosenPort(exercise_.substr(exercise_.find('@') + 1));
    if (!bp_.empty()) plan.monitor = chosenPort(bp_);
  }
  chooseOximeter(plan, partners);
  return plan;
}

void RunCommand::chooseOximeter(GuardedStation::Plan& plan, Partners* partners) const {
  if (spo2_ == overBluetooth) {
    plan.makeCentral = [this] { return oximeterCentral(); };
  } else if (partners) {
    plan.oximeter = "simulated-spo2";
    partners->add("MEDXINGPort", plan.oximeter);
  } else if (!spo2_.empty()) {
    plan.oximeter = chosenPort(spo2_);
  }
}

std::shared_ptr<BluetoothCentral> RunCommand::oximeterCentral() const {
  // Only a simulated one lives in virtual time.
  if (speedup_ != 1) return simulatedCentral(restingSaturation).central;
  const HostCentral found = hostCentral(restingSaturation);
  // A patient's values must not be made up.
  if (found.isSimulated && !simulate_) throw CommandFailure(portNotOpened, "there is no Bluetooth adapter");
  return found.central;
}

// Simulated sessions are kept only where somebody asks for them.
bool RunCommand::keepsSession() const {
  return !keepsNothing_ && (!simulate_ || !report_.empty());
}

void RunCommand::askForNames() {
  if (!keepsSession() || !isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO)) return;
  const auto ask = [](const char* question, std::string& answer) {
    if (!answer.empty()) return;
    std::cout << question << " (Enter skips it): " << std::flush;
    std::getline(std::cin, answer);
  };
  ask("Patient's id", patient_);
  ask("Operator", operator_);
}

std::unique_ptr<SessionFolder> RunCommand::makeFolder(const Protocol& protocol,
                                                      const GuardedStation::Plan& plan) const {
  if (!keepsSession()) return nullptr;
  JournalHead head{.began = Clock::wallNow()};
  const auto state = [&head](const char* key, const std::string& value) {
    if (!value.empty()) head.facts[key] = value;
  };
  const auto model = standardCatalogue().modelNamed(plan.exercise.model);
  state(fact::program, "tarsil " TARSIL_VERSION);
  state(fact::protocol, protocolText(protocol));
  state(fact::model, plan.exercise.model);
  state(fact::port, plan.exercise.port);
  state(fact::adapter, adapterAt(plan.exercise.port));
  state(fact::monitorPort, plan.monitor);
  state(fact::oximeterPort, plan.oximeter);
  state(fact::simulated, simulate_ ? "yes" : "no");
  state(fact::reportsLoad, model && model->exercise->loadReport != LoadReport::none ? "yes" : "no");
  state(fact::patient, patient_);
  state(fact::operatorName, operator_);
  state(fact::note, note_);
  if (mass_) state(fact::mass, decimalText(*mass_));
  return std::make_unique<SessionFolder>(
      report_.empty() ? standardSessionsFolder() : std::filesystem::path(report_), std::move(head));
}

std::unique_ptr<PageServer> RunCommand::makePage() const {
  if (!hasPage_) return nullptr;
  auto page = std::make_unique<PageServer>(pagePort_, pageTakesOrders_);
  std::cout << "The page: " << page->address().link() << std::endl;
  return page;
}

void RunCommand::liveFaster(const ExerciseTest& test, VirtualTime& time) const {
  constexpr Duration step = 100ms;
  auto next = std::chrono::steady_clock::now();
  while (!test.isOver()) {
    time.advance(step);
    next += std::chrono::duration_cast<std::chrono::steady_clock::duration>(step / speedup_);
    std::this_thread::sleep_until(next);
  }
}

}  // namespace tarsil::cli
