#include "tarsil/guard/GuardedStation.hpp"

#include <array>
#include <cmath>
#include <ctime>
#include <set>
#include <system_error>
#include <utility>

#include "tarsil/guard/detail/GuardedStationImplementation.hpp"
#include "tarsil/platform/UserFolders.hpp"
#include "tarsil/station/standardCatalogue.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;
using Code = Answer::Code;

constexpr const char* monitorModel = "Tango";
constexpr const char* oximeterModel = "MEDXINGPort";

bool isLimit(const Limit& limit) {
  for (const float value : {limit.highest, limit.step, limit.perSecond}) {
    if (!std::isfinite(value) || value <= 0) return false;
  }
  return true;
}

/// Everything that speaks against a plan.
class Objections {
 public:
  void add(Code code, std::string reason) { all_.push_back(Answer::refused(code, std::move(reason))); }
  bool areNone() const { return all_.empty(); }
  std::vector<Answer> take() { return std::move(all_); }

 private:
  std::vector<Answer> all_;
};

void checkNumbers(const GuardedStation::Plan& plan, Objections& objections) {
  for (const auto& [quantity, limit] :
       {std::pair{"speed", plan.limits.speed}, {"grade", plan.limits.grade}, {"power", plan.limits.power}}) {
    if (!isLimit(limit)) {
      objections.add(Code::badPlan,
                     std::string("the limits of ") + quantity + " have to be numbers above zero");
    }
  }
  if (plan.heartbeat < 100ms || plan.heartbeat > 10s) {
    objections.add(Code::badPlan, "the heartbeat has to be from 100 ms to 10 s");
  }
  if (!plan.oximeter.empty() && plan.makeCentral) {
    objections.add(Code::badPlan, "one oximeter only: on a port, or over Bluetooth");
  }
}

/// None, and an objection, when the model is no exercise device.
std::optional<DeviceModel> exerciseModel(const std::string& name, Objections& objections) {
  auto model = standardCatalogue().modelNamed(name);
  if (model && model->exercise) return model;
  objections.add(Code::noSuchModel, "no exercise device is called \"" + name + "\"");
  return std::nullopt;
}

/// The device behind each port, each port for one device.
std::vector<std::shared_ptr<const SerialDevice>> devicesBehind(const std::vector<std::string>& ports,
                                                               Objections& objections) {
  std::vector<std::shared_ptr<const SerialDevice>> devices;
  std::set<std::optional<std::string>> paths;
  for (const std::string& port : ports) {
    const auto& device = devices.emplace_back(detail::Line::deviceNamed(port));
    if (port.empty()) continue;
    if (!device) {
      objections.add(Code::noSuchPort, "there is no port \"" + port + "\"");
    } else if (!paths.insert(device->calloutPath).second) {
      objections.add(Code::portTwice, "the port \"" + port + "\" cannot serve two devices");
    }
  }
  return devices;
}

/// Named after the moment.
std::filesystem::path newFileInHome() {
  const auto folder = std::filesystem::path(UserFolders::shared()->home()) / ".local/state/tarsil/journals";
  std::error_code ignored;  // what cannot be made has no file either, and that is told
  std::filesystem::create_directories(folder, ignored);
  const std::time_t now = std::chrono::system_clock::to_time_t(Clock::wallNow());
  std::tm fields{};
  localtime_r(&now, &fields);
  std::array<char, 32> name{};
  std::strftime(name.data(), name.size(), "%Y-%m-%d %H.%M.%S", &fields);
  std::filesystem::path file = folder / (std::string(name.data()) + ".jsonl");
  for (int number = 2; std::filesystem::exists(file, ignored); ++number) {
    file = folder / (std::string(name.data()) + " (" + std::to_string(number) + ").jsonl");
  }
  return file;
}

/// The host's facts, and what the station knows of itself where the host says nothing of it.
std::map<std::string, std::string> factsOf(const GuardedStation::Plan& plan, const DeviceModel& model) {
  auto facts = plan.journal->facts;
  const auto state = [&facts](const char* key, const std::string& value) {
    if (!value.empty()) facts.emplace(key, value);
  };
  state("model", plan.exercise.model);
  state("port", plan.exercise.port);
  state("monitorPort", plan.monitor);
  state("oximeterPort", plan.oximeter);
  state("reportsLoad", model.exercise->loadReport == LoadReport::none ? "no" : "yes");
  return facts;
}

/// Null: none is wanted, or an objection says why there is none.
std::shared_ptr<JournalWriter> openJournal(const GuardedStation::Plan& plan, const DeviceModel& model,
                                           Objections& objections) {
  if (!plan.journal) return nullptr;
  try {
    return std::make_shared<JournalWriter>(
        plan.journal->path.empty() ? newFileInHome() : plan.journal->path,
        JournalHead{.began = Clock::wallNow(), .facts = factsOf(plan, model)});
  } catch (const JournalError& error) {
    objections.add(Code::noJournal, error.what());
    return nullptr;
  }
}

std::string sentencesOf(const std::vector<Answer>& refusals) {
  std::string all;
  for (const Answer& refusal : refusals) all += (all.empty() ? "" : "; ") + refusal.reason();
  return all;
}

}  // namespace

GuardedStation::Opening::Opening(std::vector<Answer> refusals)
    : answer_(Answer::refused(refusals.front().code(), sentencesOf(refusals))),
      refusals_(std::move(refusals)) {}

GuardedStation::Opening GuardedStation::open(Plan plan) {
  Objections objections;
  const auto model = exerciseModel(plan.exercise.model, objections);
  if (plan.exercise.port.empty()) objections.add(Code::noSuchPort, "the exercise device has no port");
  const auto devices = devicesBehind({plan.exercise.port, plan.monitor, plan.oximeter}, objections);
  checkNumbers(plan, objections);
  auto stop = model ? detail::stopFramesOf(*model->makeDevice()) : detail::StopFrames{};
  if (model && model->exercise->canBeDriven() && stop.now.empty()) {
    objections.add(Code::notOpen, "no descriptor is left to find out what stops " + model->name);
  }
  const auto journal = model ? openJournal(plan, *model, objections) : nullptr;
  if (!objections.areNone()) {
    std::error_code ignored;
    if (journal) std::filesystem::remove(journal->path(), ignored);
    return Opening(objections.take());
  }

  const DeviceCatalogue catalogue = standardCatalogue();
  auto implementation =
      std::make_shared<Implementation>(std::move(plan), *model, catalogue.modelNamed(monitorModel),
                                       catalogue.modelNamed(oximeterModel), std::move(stop), journal);
  implementation->begin({.exercise = devices[0], .monitor = devices[1], .oximeter = devices[2]});
  return Opening(std::shared_ptr<GuardedStation>(new GuardedStation(std::move(implementation))));
}

GuardedStation::GuardedStation(std::shared_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

GuardedStation::~GuardedStation() {
  implementation_->abandon();
}

// A listener may drop the station within a command, which then goes on with what it holds.

void GuardedStation::onEvent(std::function<void(const Event&)> listener) {
  implementation_->onEvent(std::move(listener));
}

void GuardedStation::note(Event::What what) {
  const auto held = implementation_;
  held->emit(Source::station, std::move(what));
}

Answer GuardedStation::start() {
  const auto held = implementation_;
  return held->start();
}

Answer GuardedStation::setLoad(const Load& load) {
  const auto held = implementation_;
  return held->setLoad(load);
}

Answer GuardedStation::check(const Load& load) const {
  return implementation_->check(load);
}

Answer GuardedStation::stop() {
  const auto held = implementation_;
  return held->stop();
}

Answer GuardedStation::reset() {
  const auto held = implementation_;
  return held->reset();
}

void GuardedStation::stopNow() {
  implementation_->stopNow();
}

void GuardedStation::alive() {
  implementation_->alive();
}

Answer GuardedStation::measurePressure() {
  const auto held = implementation_;
  return held->measurePressure();
}

Answer GuardedStation::abortPressure() {
  const auto held = implementation_;
  return held->abortPressure();
}

bool GuardedStation::isMeasuringPressure() const {
  return implementation_->isMeasuringPressure();
}

void GuardedStation::close() {
  const auto held = implementation_;
  held->close();
}

bool GuardedStation::isClosed() const {
  return state() == State::closed;
}

GuardedStation::State GuardedStation::state() const {
  return implementation_->state();
}

bool GuardedStation::isLatched() const {
  return implementation_->isLatched();
}

std::vector<AlarmKind> GuardedStation::alarms() const {
  return implementation_->alarms();
}

Answer GuardedStation::readiness() const {
  return implementation_->readiness();
}

Readings GuardedStation::readings() const {
  return implementation_->readings();
}

std::filesystem::path GuardedStation::journal() const {
  return implementation_->journal();
}

Load GuardedStation::target() const {
  return implementation_->target();
}

Load GuardedStation::commanded() const {
  return implementation_->commanded();
}

bool GuardedStation::reportsLoad() const {
  return implementation_->reportsLoad();
}

bool GuardedStation::hasMonitor() const {
  return implementation_->hasMonitor();
}

bool GuardedStation::hasOximeter() const {
  return implementation_->hasOximeter();
}

bool GuardedStation::measuresPressure() const {
  return implementation_->measuresPressure();
}

}  // namespace tarsil
