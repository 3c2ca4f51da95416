// random-host MODEL PORT JOURNAL PLAN NUMBER: the host with this number of a random session, a host of the
// guarded station that does not know what it wants, and now and then blocks its main thread, drops its
// station, or dies by its own hand. Its adapter has this serial number, wherever it is plugged in. It writes
// everything that happens into JOURNAL, with the times of the steady clock, and obeys lines on its standard
// input: "plugged PATH", "unplugged", and "end", which stops the exercise and ends it.
//
// It says on standard output what an onlooker cannot see: "> blocks MS", "> drops", "> dies", "> VIOLATION
// WHAT", and
// "> checked COUNT" when it ends in order.

#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>

#include "tarsil/guard/Journal.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tests/guard/StationRules.hpp"
#include "tests/guard/sessions/processSession.hpp"
#include "tests/helpers/plugInAdapter.hpp"

using namespace tarsil;
using namespace std::chrono_literals;

namespace {

constexpr Duration roundTime = 100ms;
/// A station that closes waits so long for a standstill, and some more.
constexpr Duration longestEnd = 40s;

void say(const std::string& line) {
  std::puts(("> " + line).c_str());  // the library prints, too
  std::fflush(stdout);
}

class Host {
 public:
  Host(const DeviceModel& model, const std::string& journal, std::uint64_t plan, std::uint64_t number)
      : model_(model),
        serialNumber_("SESSION-" + std::to_string(plan)),
        limits_(limitsOf(plan)),
        random_(plan + 1000003 * number),
        rules_(model, limits_, [](const std::string& what) { say("VIOLATION " + what); }),
        journal_(journal, {}, Clock::Instant{}) {}

  void plug(const std::string& path) {
    path_ = path;
    plugInAdapter(path, serialNumber_);
  }
  void unplug() { VirtualDeviceRegistry::shared()->remove(path_); }

  void open() {
    rules_.beginAnew();
    const auto opening = GuardedStation::open({.exercise = {model_.name, path_},
                                               .limits = limits_,
                                               .heartbeat = heartbeatOfRandomHosts,
                                               .journal = std::nullopt});
    if (!opening) return;  // unplugged; tried again with the next round
    station_ = opening.station();
    station_->onEvent([this](const Event& event) { hear(event); });
  }

  void goRound() {
    if (!station_ && !isEnding_) open();
    if (!station_) return;
    station_->alive();
    rules_.check(*station_);
    if (!isEnding_ && oneIn(5)) act();
  }

  void end() {
    isEnding_ = true;
    dropAfter_.reset();
    if (!station_) return;
    static_cast<void>(station_->stop());
    station_->close();
  }
  bool isEnding() const { return isEnding_; }
  bool isOver() const { return isEnding_ && (!station_ || station_->isClosed()); }
  std::uint64_t checks() const { return rules_.checks(); }

 private:
  std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(random_() % bound); }
  bool oneIn(std::uint32_t chances) { return below(chances) == 0; }

  void hear(const Event& event) {
    journal_.write(event);
    rules_.hear(event);
    if (!dropAfter_ || (*dropAfter_)-- > 0) return;
    dropAfter_.reset();
    say("drops");
    station_.reset();
  }

  /// What is refused is in the journal.
  void act() {
    const auto action = below(40);
    if (action < 8 || (action < 20 && station_->readiness().isAccepted())) {
      static_cast<void>(station_->start());
    } else if (action < 24) {
      static_cast<void>(station_->setLoad(randomLoad()));
    } else if (action < 27) {
      static_cast<void>(station_->reset());
    } else if (action < 29) {
      static_cast<void>(station_->stop());
    } else if (action < 31) {
      static_cast<void>(station_->measurePressure());
    } else if (action == 31) {
      block(std::chrono::milliseconds(100 + below(2500)));
    } else if (action == 32) {
      dropAfter_ = below(20);
    } else if (action == 33 && oneIn(2)) {
      say("dies");
      if (oneIn(2)) std::abort();
      _exit(0);
    }
  }

  static void block(std::chrono::milliseconds time) {
    say("blocks " + std::to_string(time.count()));
    std::this_thread::sleep_for(time);
  }

  Load randomLoad() {
    if (model_.kind == DeviceKind::ergometer) return {.power = static_cast<float>(below(400))};
    Load load{.speed = static_cast<float>(below(160)) / 10};
    if (model_.exercise->grade.carriesAnything()) load.grade = static_cast<float>(below(24));
    return load;
  }

  const DeviceModel model_;
  /// Of its adapter, wherever it is plugged in.
  const std::string serialNumber_;
  const Limits limits_;
  std::mt19937_64 random_;
  StationRules rules_;
  JournalWriter journal_;
  std::string path_;
  std::shared_ptr<GuardedStation> station_;
  std::optional<std::uint32_t> dropAfter_;
  bool isEnding_ = false;
};

/// Obeys the lines that are there.
void obey(Host& host) {
  static std::string pending;
  pollfd input{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
  while (poll(&input, 1, 0) == 1) {
    char character = 0;
    if (read(STDIN_FILENO, &character, 1) != 1) return host.end();
    if (character != '\n') {
      pending += character;
      continue;
    }
    if (pending == "unplugged") host.unplug();
    if (pending.starts_with("plugged ")) host.plug(pending.substr(pending.find(' ') + 1));
    if (pending == "end") return host.end();
    pending.clear();
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) return 2;
  const rlimit noCore{};
  setrlimit(RLIMIT_CORE, &noCore);
  const auto model = standardCatalogue().modelNamed(argv[1]);
  if (!model || !model->exercise) return 2;
  Host host(*model, argv[3], std::strtoull(argv[4], nullptr, 10), std::strtoull(argv[5], nullptr, 10));
  host.plug(argv[2]);
  std::optional<Clock::Instant> endsAt;
  while (!host.isOver()) {
    host.goRound();
    obey(host);
    const auto next = Clock::now() + roundTime;
    RunLoop::main().runUntil([&] { return host.isOver() || Clock::now() >= next; }, roundTime);
    if (!endsAt && host.isEnding()) endsAt = Clock::now() + longestEnd;
    if (endsAt && Clock::now() > *endsAt) {
      say("VIOLATION the station does not close");
      return 3;
    }
  }
  say("checked " + std::to_string(host.checks()));
  return 0;
}
