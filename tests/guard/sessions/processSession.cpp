#include "tests/guard/sessions/processSession.hpp"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <utility>
#include <vector>

#include "tarsil/guard/Journal.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tests/helpers/ChildProcess.hpp"

namespace tarsil {
namespace {

using namespace std::chrono_literals;

constexpr Duration step = 100ms;
/// The machine's clock is known by the moment when its process said that it lives; and processes of a busy
/// computer do things later than they are due.
constexpr Duration clockDoubt = 700ms;
/// From a protective stop, or a host's death, to the command that makes the machine stand.
constexpr Duration promised = 1s;
/// A watcher waits a little longer for its host than the station's own thread does.
constexpr Duration longestHeartbeat = heartbeatOfRandomHosts + 250ms;
/// What a killed host's journal may lack, and what it takes to notice the death.
constexpr Duration lastMoments = 500ms;
/// Until a line that was mended is open again and in use.
constexpr Duration recovery = 5s;

/// One line of the machine's history.
struct Moment {
  Clock::Instant at;
  float speed = 0, grade = 0, power = 0;
  float actualSpeed = 0, actualPower = 0;
  bool isRunning = false;

  bool isAskedToMove() const { return isRunning && (speed > 0 || power > 0); }
};

std::optional<Moment> readMoment(const std::string& line, Clock::Instant began) {
  double seconds = 0;
  std::array<char, 16> state{};
  Moment walk;
  Moment ride;
  float actualGrade = 0;
  const bool isWalk =
      std::sscanf(line.c_str(), "%lf s, asked %f km/h %f %%, actual %f km/h %f %%, %15s", &seconds,
                  &walk.speed, &walk.grade, &walk.actualSpeed, &actualGrade, state.data()) == 6;
  const bool isRide = !isWalk && std::sscanf(line.c_str(), "%lf s, asked %f W, actual %f W, %15s", &seconds,
                                             &ride.power, &ride.actualPower, state.data()) == 4;
  if (!isWalk && !isRide) return std::nullopt;
  Moment moment = isWalk ? walk : ride;
  moment.at = began + std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
  moment.isRunning = std::string(state.data()) == "running";
  return moment;
}

std::string text(const Moment& moment) {
  std::ostringstream text;
  text << "asked " << moment.speed << " km/h " << moment.grade << " % " << moment.power << " W, actual "
       << moment.actualSpeed << " km/h " << moment.actualPower << " W"
       << (moment.isRunning ? ", running" : ", stopped");
  return text.str();
}

bool hasOpened(const Journal& journal) {
  return std::any_of(journal.events.begin(), journal.events.end(),
                     [](const Event& event) { return std::holds_alternative<LineOpened>(event.what); });
}

/// Whether it ends in the middle of an exercise.
bool wasWalking(const Journal& journal) {
  bool walks = false;
  for (const Event& event : journal.events) {
    if (std::holds_alternative<Started>(event.what)) walks = true;
    if (std::holds_alternative<StandstillSeen>(event.what) ||
        std::holds_alternative<StandstillUnseen>(event.what))
      walks = false;
  }
  return walks;
}

class ProcessSession {
 public:
  ProcessSession(std::uint64_t seed, std::string folder)
      : folder_(std::move(folder)), seed_(seed), random_(seed) {}

  RandomSession play();

 private:
  std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(random_() % bound); }
  bool oneIn(std::uint32_t chances) { return below(chances) == 0; }
  void tell(const std::string& line, Clock::Instant at = Clock::now()) {
    std::ostringstream text;
    text << std::chrono::duration<double>(at - began_).count() << " s: " << line;
    result_.story.push_back(text.str());
  }
  void violate(const std::string& what) {
    tell("VIOLATION: " + what);
    result_.violations.push_back(what);
  }
  void demand(bool holds, const std::string& what) {
    ++result_.checks;
    if (!holds) violate(what);
  }

  static void pass(Duration time) {
    RunLoop::main().runUntil([] { return false; }, time);
  }

  void plugTogether();
  std::string randomCable();
  void startHost();
  void lookAtHost();
  void hostSays(const std::string& line);
  void hostEnded();
  void hostSuffers();
  void cableActs();
  void machineActs();
  void finish();

  /// Between these instants the machine is asked to stand, if the host at hand moved it and a command can
  /// reach it.
  void expectStop(Clock::Instant since, Clock::Instant deadline, const std::string& why);
  bool couldBeReached(Clock::Instant from, Clock::Instant to) const;
  void lineBreaks() { lineBrokeAt_ = lineBrokeAt_.value_or(Clock::now()); }
  void lineIsMended();

  void plugIn();

  void readHistory();
  void judgeHistory();
  void judgeJournals();
  /// Whether it says that an earlier host's watcher has acted.
  bool judgeJournal(std::size_t index, const Journal& journal);
  void judgeStops();
  bool stoodAround(Clock::Instant instant) const;
  const Moment& momentAt(Clock::Instant instant) const;

  const std::string folder_;
  const std::uint64_t seed_;
  std::mt19937_64 random_;
  RandomSession result_;
  const Clock::Instant began_ = Clock::now();

  DeviceModel model_;
  bool commandsAreDamaged_ = false;
  std::optional<ChildProcess> machine_;
  Clock::Instant machineBegan_;
  std::optional<ChildProcess> cable_;
  std::string path_;
  bool isUnplugged_ = false;
  bool commandsAreMuted_ = false;
  std::optional<Clock::Instant> lineBrokeAt_;
  std::vector<std::pair<Clock::Instant, Clock::Instant>> brokenTimes_;

  std::unique_ptr<ChildProcess> host_;
  std::size_t linesRead_ = 0;
  std::vector<std::string> journals_;
  bool wasKilled_ = false;
  bool hasEndedInOrder_ = false;
  std::optional<Clock::Instant> stoppedUntil_;

  struct DueStop {
    Clock::Instant since;
    Clock::Instant deadline;
    std::size_t journal;
    std::string why;
  };
  std::vector<DueStop> dueStops_;
  std::vector<Clock::Instant> deaths_;
  std::vector<Moment> history_;
  /// When the hosts started the exercise, by their journals.
  std::vector<std::vector<Clock::Instant>> starts_;
  /// What hosts asked for, and when.
  std::vector<std::pair<Clock::Instant, Load>> asked_;
};

// The plan

std::string ProcessSession::randomCable() {
  static const std::array lines{"wire",
                                "adapter",
                                "latency=1ms,packet=62",
                                "latency=16ms,packet=8",
                                "adapter,delay=30ms",
                                "adapter,split=1/5",
                                "adapter,join=1/5"};
  std::string cable = lines.at(below(lines.size()));
  if (oneIn(3)) cable += ",replies.lose=1/100";
  if (oneIn(3)) cable += ",replies.change=1/200";
  if (oneIn(3)) cable += ",replies.add=1/200";
  if (oneIn(3)) cable += ",replies.double=1/200";
  // What a damaged command without a check means is known to the machine alone; a frame with one is dropped.
  commandsAreDamaged_ = model_.name == "LodeTreadmill" && oneIn(4);
  if (commandsAreDamaged_) cable += ",commands.lose=1/200,commands.change=1/300";
  return cable + ",seed=" + std::to_string(below(1000000) + 1);
}

void ProcessSession::plugTogether() {
  static const std::array models{"LodeTreadmill",   "LodeOEMTreadmill", "TrackMaster",      "TM-400V2",
                                 "ErgolineK2.4P10", "ErgosanaK4.8P10",  "ErgometricsK2.4P3"};
  model_ = *standardCatalogue().modelNamed(models.at(seed_ % models.size()));
  const std::string cable = randomCable();
  tell(model_.name + " over " + cable);
  machine_.emplace(
      std::vector<std::string>{TARSIL_PROGRAM, "simulate", model_.name, "--orders", "--cable", "wire"});
  RunLoop::main().runUntil([this] { return !machine_->lines().empty(); }, 30s);
  machineBegan_ = Clock::now();
  cable_.emplace(std::vector<std::string>{
      TARSIL_PROGRAM, "cable", model_.name + "@" + machine_->lines().at(0), "--cable", cable, "--orders"});
  RunLoop::main().runUntil([this] { return !cable_->lines().empty(); }, 30s);
  path_ = cable_->lines().at(0);
}

RandomSession ProcessSession::play() {
  plugTogether();
  startHost();
  const int steps = 110 + static_cast<int>(below(60));
  for (int i = 0; i < steps; ++i) {
    if (!host_ && !isUnplugged_ && oneIn(8)) startHost();
    if (i > 40 && oneIn(35)) hostSuffers();
    if (i > 40 && oneIn(30)) cableActs();
    if (i > 60 && oneIn(90)) machineActs();
    pass(step);
    lookAtHost();
  }
  finish();
  readHistory();
  judgeJournals();
  judgeHistory();
  judgeStops();
  return std::move(result_);
}

// Hosts

void ProcessSession::startHost() {
  const std::string number = std::to_string(journals_.size());
  journals_.push_back(folder_ + "/journal-" + number);
  host_ = std::make_unique<ChildProcess>(std::vector<std::string>{
      RANDOM_HOST, model_.name, path_, journals_.back(), std::to_string(seed_), number});
  linesRead_ = 0;
  wasKilled_ = false;
  tell("host " + number + " begins");
}

void ProcessSession::lookAtHost() {
  if (!host_) return;
  if (stoppedUntil_ && Clock::now() > *stoppedUntil_) {
    host_->signal(SIGCONT);
    stoppedUntil_.reset();
  }
  const bool hasEnded = host_->hasEnded();
  if (hasEnded) pass(step);  // its last lines
  for (; linesRead_ < host_->lines().size(); ++linesRead_) {
    const std::string& line = host_->lines()[linesRead_];
    if (line.starts_with("> ")) hostSays(line.substr(2));
  }
  if (hasEnded) hostEnded();
}

void ProcessSession::hostSays(const std::string& line) {
  const std::string word = line.substr(0, line.find(' '));
  const std::string rest = line.substr(std::min(word.size() + 1, line.size()));
  tell("host: " + line);
  if (word == "checked") {
    result_.checks += std::stoull(rest);
    hasEndedInOrder_ = true;
    return;
  }
  ++result_.faults;
  if (word == "VIOLATION") violate(rest);
  if (word == "dies") wasKilled_ = true;
  if (word == "drops") expectStop(Clock::now(), Clock::now() + promised, "its host dropped the station");
  const Duration blocked = word == "blocks" ? std::chrono::milliseconds(std::stoi(rest)) : 0ms;
  if (blocked > longestHeartbeat + promised) {
    expectStop(Clock::now(), Clock::now() + longestHeartbeat + promised,
               "its host's main thread was blocked");
  }
}

void ProcessSession::hostEnded() {
  expectStop(Clock::now(), Clock::now() + promised, "its host died");
  demand(wasKilled_ || hasEndedInOrder_, "the host's process ended by itself");
  deaths_.push_back(Clock::now());
  tell("the host is gone");
  host_.reset();
  stoppedUntil_.reset();
}

void ProcessSession::hostSuffers() {
  if (!host_ || stoppedUntil_) return;
  ++result_.faults;
  if (oneIn(2)) {
    tell("the host is killed");
    wasKilled_ = true;
    return host_->signal(SIGKILL);
  }
  const auto time = std::chrono::milliseconds(200 + below(3500));
  tell("the host is stopped for " + std::to_string(time.count()) + " ms");
  host_->signal(SIGSTOP);
  stoppedUntil_ = Clock::now() + time;
  if (time > longestHeartbeat + promised + clockDoubt)
    expectStop(Clock::now(), Clock::now() + longestHeartbeat + promised, "its host was stopped");
}

// The line and the machine

void ProcessSession::lineIsMended() {
  if (commandsAreMuted_ || isUnplugged_ || !lineBrokeAt_) return;
  brokenTimes_.emplace_back(*lineBrokeAt_ - clockDoubt, Clock::now() + recovery);
  lineBrokeAt_.reset();
}

void ProcessSession::cableActs() {
  ++result_.faults;
  switch (below(6)) {
    case 0:
      tell("replies are muted");
      return cable_->writeLine("mute replies");
    case 1:
      tell("replies are not muted");
      return cable_->writeLine("unmute replies");
    case 2:
      commandsAreMuted_ = oneIn(2);
      tell(commandsAreMuted_ ? "commands are muted" : "commands are not muted");
      cable_->writeLine(commandsAreMuted_ ? "mute commands" : "unmute commands");
      return commandsAreMuted_ ? lineBreaks() : lineIsMended();
    case 3:
      return cable_->writeLine("lose replies");
    case 4:
      return cable_->writeLine("change replies");
    default:
      break;
  }
  if (isUnplugged_) return plugIn();
  tell("unplugged");
  isUnplugged_ = true;
  lineBreaks();
  cable_->writeLine("disconnect");
  if (host_) host_->writeLine("unplugged");
}

void ProcessSession::machineActs() {
  ++result_.faults;
  const bool stops = oneIn(2);
  tell(stops ? "somebody presses stop at the machine" : "somebody presses start at the machine");
  machine_->writeLine(stops ? "press stop" : "press start");
}

void ProcessSession::plugIn() {
  const std::size_t lines = cable_->lines().size();
  cable_->writeLine("connect");
  RunLoop::main().runUntil([&] { return cable_->lines().size() > lines; }, 30s);
  path_ = cable_->lines().back();
  isUnplugged_ = false;
  if (host_) host_->writeLine("plugged " + path_);
  lineIsMended();
  tell("plugged in at " + path_);
}

/// Everything is mended, and a host that stops the exercise before it ends has to see it stand.
void ProcessSession::finish() {
  tell("everything is mended");
  cable_->writeLine("unmute both");
  commandsAreMuted_ = false;
  if (isUnplugged_) plugIn();
  lineIsMended();
  machine_->writeLine("press start");
  if (stoppedUntil_) stoppedUntil_ = Clock::now();
  for (int attempt = 0; attempt < 4 && !hasEndedInOrder_; ++attempt) {
    if (!host_) startHost();
    host_->writeLine("end");
    for (Duration passed{}; passed < 60s && host_; passed += step) {
      pass(step);
      lookAtHost();
    }
    if (host_) break;
  }
  demand(hasEndedInOrder_, "no host ends in order when everything is mended");

  machine_->writeLine("history");
  RunLoop::main().runUntil([this] { return machine_->lines().back().empty(); }, 30s);
  cable_->writeLine("count");
  RunLoop::main().runUntil([this] { return cable_->lines().back().starts_with("replies: "); }, 30s);
  tell(cable_->lines().back());
}

// What the machine knows

void ProcessSession::expectStop(Clock::Instant since, Clock::Instant deadline, const std::string& why) {
  dueStops_.push_back({since, deadline, journals_.size() - 1, why});
}

bool ProcessSession::couldBeReached(Clock::Instant from, Clock::Instant to) const {
  return !commandsAreDamaged_ &&
         std::none_of(brokenTimes_.begin(), brokenTimes_.end(),
                      [&](const auto& broken) { return broken.first <= to && broken.second >= from; });
}

void ProcessSession::readHistory() {
  for (const std::string& line : machine_->lines()) {
    if (const auto moment = readMoment(line, machineBegan_)) history_.push_back(*moment);
  }
  demand(!history_.empty(), "the machine has no history");
}

void ProcessSession::judgeHistory() {
  const Limits limits = limitsOf(seed_);
  // Miles are rounded on their way.
  constexpr float rounding = 0.15F;
  for (std::size_t i = 0; i < history_.size(); ++i) {
    const Moment& moment = history_[i];
    demand(moment.speed <= limits.speed.highest + rounding &&
               moment.grade <= limits.grade.highest + rounding && moment.power <= limits.power.highest,
           "the machine was asked for more than the limits allow");
    if (i == 0 || (moment.speed <= history_[i - 1].speed && moment.power <= history_[i - 1].power)) continue;
    const bool isHosts = std::any_of(asked_.begin(), asked_.end(), [&](const auto& asked) {
      const Duration age = moment.at - asked.first;
      return age > -clockDoubt && age < 3s && asked.second.speed + rounding >= moment.speed &&
             asked.second.power >= moment.power;
    });
    // The last moments of a killed host's journal may be missing.
    const bool isLastWord = std::any_of(deaths_.begin(), deaths_.end(), [&](Clock::Instant death) {
      return moment.at > death - lastMoments && moment.at < death + clockDoubt;
    });
    demand(isHosts || isLastWord, "the load was raised by nobody: " + text(moment));
  }
  const Moment& last = history_.back();
  demand(!last.isAskedToMove(), "the machine is asked to move at the end: " + text(last));
  // Nobody waits for one that reports nothing: it may still slow down.
  if (model_.exercise->loadReport == LoadReport::none) return;
  demand(last.actualSpeed <= 0.1F && last.actualPower <= 1, "the machine moves at the end: " + text(last));
}

void ProcessSession::judgeStops() {
  for (const DueStop& due : dueStops_) {
    // A host that never moved it owes nothing for what others left.
    const auto& starts = starts_[due.journal];
    if (starts.empty() || starts.front() > due.since) continue;
    if (!couldBeReached(due.since - clockDoubt, due.deadline + clockDoubt)) continue;
    const bool stood = std::any_of(history_.begin(), history_.end(), [&](const Moment& moment) {
      return !moment.isAskedToMove() && moment.at > due.since && moment.at <= due.deadline + clockDoubt;
    });
    demand(stood || !momentAt(due.since).isAskedToMove(),
           due.why + ", and in time the machine was not asked to stand: " +
               text(momentAt(due.deadline + clockDoubt)));
  }
}

const Moment& ProcessSession::momentAt(Clock::Instant instant) const {
  const auto after =
      std::find_if(history_.begin(), history_.end(), [&](const Moment& m) { return m.at > instant; });
  return after == history_.begin() ? *after : *std::prev(after);
}

bool ProcessSession::stoodAround(Clock::Instant instant) const {
  const auto stands = [](const Moment& moment) {
    return moment.actualSpeed <= 0.11F && moment.actualPower <= 1;
  };
  return stands(momentAt(instant)) ||
         std::any_of(history_.begin(), history_.end(), [&](const Moment& moment) {
           return stands(moment) && moment.at > instant - clockDoubt && moment.at < instant + clockDoubt;
         });
}

// What hosts wrote down

void ProcessSession::judgeJournals() {
  starts_.resize(journals_.size());
  bool owesReport = false;
  for (std::size_t index = 0; index < journals_.size(); ++index) {
    std::ifstream file(journals_[index]);
    const std::string all{std::istreambuf_iterator<char>(file), {}};
    const auto journal = readJournal(all);
    if (!journal) continue;  // killed before it had one
    demand(!journal->isTorn && journal->unreadableLines.empty(), "a journal has lines that cannot be read");
    const bool isTold = judgeJournal(index, *journal);
    if (!hasOpened(*journal)) continue;
    if (std::exchange(owesReport, wasWalking(*journal)))
      demand(isTold, "a host was not told how the one before it ended");
  }
}

bool ProcessSession::judgeJournal(std::size_t index, const Journal& journal) {
  bool isTold = false;
  const std::string host = "host " + std::to_string(index) + " ";
  for (const Event& event : journal.events) {
    if (std::holds_alternative<Started>(event.what)) tell(host + "started", event.at);
    if (const auto* stop = std::get_if<ProtectiveStop>(&event.what)) {
      tell(host + "protective stop: " + name(stop->cause), event.at);
      dueStops_.push_back(
          {event.at, event.at + promised, index, std::string("protective stop: ") + name(stop->cause)});
    }
    if (std::holds_alternative<WatcherActed>(event.what)) isTold = true;
    if (std::holds_alternative<Started>(event.what)) starts_[index].push_back(event.at);
    if (const auto* asked = std::get_if<Asked>(&event.what)) asked_.emplace_back(event.at, asked->load);
    if (std::holds_alternative<StandstillSeen>(event.what))
      demand(stoodAround(event.at), "a machine that moves is said to stand");
  }
  return isTold;
}

}  // namespace

RandomSession runProcessSession(std::uint64_t seed, const std::string& folder) {
  return ProcessSession(seed, folder).play();
}

}  // namespace tarsil
