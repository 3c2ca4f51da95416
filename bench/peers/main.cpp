// The whole way of a byte, from a device's write to the host's main thread and back, beside what hosts use
// otherwise: round trips (6 bytes out, 8 back) and streaming, on a pseudo-terminal whose device is a process
// of its own. Every peer has a turn in every round, so that all see the same machine; only the ratios to the
// bare two threads say anything.
//
//   bench-peers [--one-core] [--rounds N] [--json FILE]
#include <pty.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string_view>

#include "bench/allocations/allocations.hpp"
#include "bench/peers/Peer.hpp"

namespace {

using namespace peers;
using Clock = std::chrono::steady_clock;

const std::string question = "LOAD?\n";
const std::string answer = "LOAD 55\n";
constexpr std::size_t streamed = 4'000'000;
// Round trips of a turn.
constexpr int warming = 20;
constexpr int timed = 200;

// What the device is told over its pipe.
constexpr char doAnswer = 'a';
constexpr char doStream = 's';

/// The device's process: answers questions, or streams when it is told so.
[[noreturn]] void beTheDevice(int line, int orders) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const std::string piece(4000, 'x');
  char order = doAnswer;
  while (read(orders, &order, 1) == 1) {
    if (order == doStream) {
      for (std::size_t sent = 0; sent < streamed;) {
        const ssize_t count = write(line, piece.data(), std::min(piece.size(), streamed - sent));
        if (count > 0) sent += static_cast<std::size_t>(count);
      }
      continue;
    }
    std::array<char, 64> bytes{};
    for (std::size_t heard = 0; heard < question.size();) {
      const ssize_t count = read(line, bytes.data(), question.size() - heard);
      if (count > 0) heard += static_cast<std::size_t>(count);
    }
    if (write(line, answer.data(), answer.size()) < 0) _exit(1);
  }
  _exit(0);
}

/// A raw line to such a device.
class Device {
 public:
  Device() {
    std::array<char, 64> name{};
    int line = -1;
    std::array<int, 2> orders{};
    if (openpty(&line, &far_, name.data(), nullptr, nullptr) != 0 || pipe(orders.data()) != 0) std::abort();
    termios modes{};
    tcgetattr(far_, &modes);
    cfmakeraw(&modes);
    tcsetattr(far_, TCSANOW, &modes);
    path_ = name.data();
    process_ = fork();
    if (process_ == 0) {
      close(orders[1]);
      beTheDevice(line, orders[0]);
    }
    close(line);
    close(orders[0]);
    orders_ = orders[1];
  }
  ~Device() {
    close(orders_);
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    close(far_);
  }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  const std::string& path() const { return path_; }
  bool tell(char order) const { return write(orders_, &order, 1) == 1; }

 private:
  int far_ = -1;
  int orders_ = -1;
  pid_t process_ = -1;
  std::string path_;
};

struct Cost {
  double seconds = 0;
  double switches = 0;
  double allocations = 0;
};

Cost costSoFar() {
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return {seconds(used.ru_utime) + seconds(used.ru_stime),
          static_cast<double>(used.ru_nvcsw + used.ru_nivcsw), static_cast<double>(bench::allocations())};
}

/// What was measured of one peer, over all rounds.
struct Figures {
  std::vector<double> trips;       // µs
  Cost cost;                       // of all trips
  std::vector<double> throughput;  // MB/s
  bool failed = false;
};

double quantile(std::vector<double> values, double part) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

bool trip(const Device& device, Peer& peer) {
  return device.tell(doAnswer) && peer.send(question) && peer.receive(answer.size());
}

bool timeTrips(const Device& device, Peer& peer, Figures& figures) {
  for (int i = 0; i < warming; ++i) {
    if (!trip(device, peer)) return false;
  }
  const Cost before = costSoFar();
  for (int i = 0; i < timed; ++i) {
    if (!device.tell(doAnswer)) return false;
    const auto start = Clock::now();
    if (!peer.send(question) || !peer.receive(answer.size())) return false;
    figures.trips.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  }
  const Cost after = costSoFar();
  figures.cost.seconds += after.seconds - before.seconds;
  figures.cost.switches += after.switches - before.switches;
  figures.cost.allocations += after.allocations - before.allocations;
  return true;
}

bool timeStream(const Device& device, Peer& peer, Figures& figures) {
  const auto start = Clock::now();
  if (!device.tell(doStream) || !peer.receive(streamed)) return false;
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  figures.throughput.push_back(streamed / seconds / 1e6);
  return true;
}

bool takeTurn(Peer& peer, Figures& figures) {
  const Device device;
  peer.open(device.path());
  const bool worked = timeTrips(device, peer, figures) && timeStream(device, peer, figures);
  peer.close();
  return worked;
}

bool takeTurnOfPyserial(Figures& figures) {
  const Device device;
  for (int i = 0; i < warming + timed; ++i) {
    if (!device.tell(doAnswer)) return false;
  }
  if (!device.tell(doStream)) return false;
  const auto turn = takePyserialTurn(device.path(), warming, timed, streamed);
  if (!turn) return false;
  figures.trips.insert(figures.trips.end(), turn->trips.begin(), turn->trips.end());
  figures.throughput.push_back(streamed / turn->streamSeconds / 1e6);
  return true;
}

nlohmann::ordered_json resultOf(const std::string& name, bool readsInBackground, const Figures& figures,
                                const Figures& bare) {
  nlohmann::ordered_json result{{"peer", name}, {"background", readsInBackground}};
  if (figures.failed) {
    result["failed"] = true;
    return result;
  }
  const auto trips = static_cast<double>(figures.trips.size());
  result["median_us"] = quantile(figures.trips, 0.5);
  result["median_ratio"] = quantile(figures.trips, 0.5) / quantile(bare.trips, 0.5);
  result["p99_us"] = quantile(figures.trips, 0.99);
  result["p99_ratio"] = quantile(figures.trips, 0.99) / quantile(bare.trips, 0.99);
  if (figures.cost.seconds > 0) {
    result["cpu_us"] = figures.cost.seconds * 1e6 / trips;
    result["switches"] = figures.cost.switches / trips;
    result["allocations"] = figures.cost.allocations / trips;
  }
  result["stream_mb_s"] = quantile(figures.throughput, 0.5);
  result["stream_ratio"] = quantile(figures.throughput, 0.5) / quantile(bare.throughput, 0.5);
  return result;
}

void print(const nlohmann::ordered_json& result) {
  const std::string name = result["peer"];
  if (result.contains("failed")) {
    std::printf("%-24s cannot use this terminal\n", name.c_str());
    return;
  }
  // What only the process itself could count is not known of another one.
  const auto number = [&](const char* key) { return result.value(key, std::nan("")); };
  std::printf("%-24s %8.1f %6.2f %8.1f %6.2f %8.1f %8.2f %7.2f %9.1f %6.2f\n", name.c_str(),
              number("median_us"), number("median_ratio"), number("p99_us"), number("p99_ratio"),
              number("cpu_us"), number("switches"), number("allocations"), number("stream_mb_s"),
              number("stream_ratio"));
}

struct Options {
  bool oneCore = false;
  int rounds = 10;
  std::string json;
};

Options optionsOf(int count, char** words) {
  Options options;
  for (int i = 1; i < count; ++i) {
    const std::string_view word = words[i];
    if (word == "--one-core") {
      options.oneCore = true;
    } else if (word == "--rounds" && i + 1 < count) {
      options.rounds = std::atoi(words[++i]);
    } else if (word == "--json" && i + 1 < count) {
      options.json = words[++i];
    } else {
      std::fprintf(stderr, "bench-peers [--one-core] [--rounds N] [--json FILE]\n");
      std::exit(2);
    }
  }
  return options;
}

}  // namespace

int main(int count, char** words) {
  const Options options = optionsOf(count, words);
  std::signal(SIGPIPE, SIG_IGN);
  if (options.oneCore) {
    cpu_set_t first;
    CPU_ZERO(&first);
    CPU_SET(0, &first);
    if (sched_setaffinity(0, sizeof first, &first) != 0) return 1;
  }

  Peers all;
  addBare(all);
  addTarsil(all);
  addAsio(all);
  addQt(all);
  addLibserial(all);
  addLibserialport(all);

  std::vector<Figures> figures(all.size());
  Figures python;
  python.failed = !hasPyserial();
  for (int round = 0; round < options.rounds; ++round) {
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (!figures[i].failed) figures[i].failed = !takeTurn(*all[i], figures[i]);
    }
    if (!python.failed) python.failed = !takeTurnOfPyserial(python);
  }

  std::printf("%-24s %8s %6s %8s %6s %8s %8s %7s %9s %6s\n", "6 bytes out, 8 back", "median", "ratio", "99 %",
              "ratio", "CPU", "switches", "allocs", "stream", "ratio");
  std::printf("%-24s %8s %6s %8s %6s %8s %8s %7s %9s %6s\n", "", "us", "", "us", "", "us", "", "", "MB/s",
              "");
  nlohmann::ordered_json results = nlohmann::ordered_json::array();
  for (std::size_t i = 0; i < all.size(); ++i) {
    results.push_back(resultOf(all[i]->name(), all[i]->readsInBackground(), figures[i], figures[0]));
    print(results.back());
  }
  results.push_back(resultOf("pyserial", false, python, figures[0]));
  print(results.back());
  if (!options.json.empty()) std::ofstream(options.json) << results.dump(2) << "\n";
  return figures[0].failed || figures[1].failed ? 1 : 0;
}
