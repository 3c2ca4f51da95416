#include <array>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <optional>
#include <regex>

#include "tests/twins/slowCodecs.hpp"
#include "tests/twins/twins.hpp"

namespace tarsil::twins {
namespace {

using namespace std::chrono_literals;

class TangoTwin final : public Twin {
 public:
  void startBP() override {
    command(isINIT_ ? "INIT\n\r" : "STRT\n\r", isINIT_ ? "init" : "start");
    isINIT_ = false;
  }
  void breakBP() override { command("STOP\n\r", "break"); }
  void requestBP() override { command("DATA\n\r", "last"); }
  void clearBP() override { command("CLRR\n\r", "clear"); }
  void requestSpO2() override { sendText("SPO2\n\r"); }

  void advance(Duration duration) override {
    const Duration end = now + duration;
    while (!waiting_.empty() && deadline_ <= end) {
      now = deadline_;
      next();
    }
    now = end;
  }

  void receive(ByteView chunk) override {
    read(std::string(chunk.begin(), chunk.end()));
    for (const std::uint8_t byte : chunk) {
      if (waiting_.empty()) continue;
      heard_ += static_cast<char>(byte);
      if (heard_.ends_with(waiting_.front())) next();
    }
  }

  Bytes chunk(Random& random) override {
    if (plan_.empty()) plan_ = message(random);
    const std::size_t size =
        random.oneIn(4) ? 1 + random.below(static_cast<unsigned>(plan_.size())) : plan_.size();
    const std::string part = plan_.substr(0, size);
    plan_.erase(0, size);
    return text(part);
  }

 private:
  static constexpr const char* echo = "INITR\n\r00000\n\r00000\n\r00000\n\r";

  static std::string message(Random& random) {
    if (random.oneIn(6)) return random.oneOf(std::array<std::string, 4>{"\n\r", "0", "noise", "0097%\n\r"});
    if (random.oneIn(4)) return random.oneOf(std::array<std::string, 3>{"INIT\n\r", "DATA\n\r", "CLRR\n\r"});
    if (random.oneIn(3)) return echo;
    std::string record = random.oneOf(std::array<std::string, 2>{"123A", "1234Z"});
    for (int i = 0; i < 3; ++i) {
      record += random.oneIn(30) ? "\r\n" : "\n\r";
      record += random.oneOf(std::string("+-x "));
      record += random.oneOf(std::array<std::string, 6>{"0000", "0080", "0120", "0223", "0224", "0300"});
    }
    return record + "\n\r" + (random.oneIn(4) ? "0" : "");
  }

  /// A command waits for the one before it to be echoed, or for a second.
  void command(const std::string& characters, const std::string& type) {
    type_ = type;
    if (!hasPort) return;
    waiting_.push_back(characters);
    if (waiting_.size() == 1) begin();
  }
  void begin() {
    sent.push_back(text(waiting_.front()));
    deadline_ = now + 1s;
    heard_.clear();
  }
  void next() {
    waiting_.pop_front();
    if (!waiting_.empty()) begin();
  }

  static float number(const std::string& part) {
    char* end = nullptr;
    const float value = std::strtof(part.c_str(), &end);
    const bool isNumber = !part.empty() && part.front() != ' ' && end == part.c_str() + part.size();
    return isNumber ? value : 0;
  }

  void read(const std::string& characters) {
    taskJoint_ += characters;
    if (taskJoint_.ends_with(echo)) {
      calls.push_back(bloodPressure(0, 0, 3));
      taskJoint_.clear();
    }
    // A dot is any character but a line end, \s any blank one.
    static const std::regex record(
        "[0-9]{3,4}[A-Z]\\s\\s.[0-9]{4}\\s\\s.[0-9]{4}\\s\\s.[0-9]{4}\\s\\s[0]{0,1}");
    if (taskJoint_.size() > 40 || !std::regex_match(taskJoint_, record)) return;
    std::vector<std::string> parts{""};
    for (std::size_t at = 0; at < taskJoint_.size(); ++at) {
      if (taskJoint_.substr(at, 2) == "\n\r") {
        parts.emplace_back();
        ++at;
      } else {
        parts.back() += taskJoint_[at];
      }
    }
    if (parts.size() < 3) throw Stops();
    const float systolic = number(parts[1]);
    const float diastolic = number(parts[2]);
    int status = 0;
    if (systolic > 223) {
      status = 1;
    } else if (systolic == 0 || diastolic == 0) {
      status = 3;
    } else if (systolic <= diastolic) {
      status = 2;
    }
    if (type_ == "last") status = 4;
    calls.push_back(bloodPressure(systolic, diastolic, status));
    taskJoint_.clear();
    type_ = "";
  }

  bool isINIT_ = true;
  std::string type_;
  std::string taskJoint_;
  std::deque<std::string> waiting_;
  Duration deadline_{};
  std::string heard_;
  std::string plan_;
};

class MEDXINGTwin final : public Twin {
 public:
  void receive(ByteView chunk) override {
    const std::string hexText = upperHex(chunk);
    if (hexText.size() < 12 || hexText.substr(8, 4) != "2395") return;
    const std::string saturation = hexText.size() < 18 ? "范围越界" : hexText.substr(16, 2);
    if (saturation == before_) return;
    before_ = saturation;
    // A frame that ends before its saturation measures none.
    const std::int64_t value = hexText.size() < 18 ? 255 : numberOf(saturation);
    calls.push_back(oxygenSaturation(value > 100 ? -1 : static_cast<float>(value), 1));
  }

  Bytes chunk(Random& random) override {
    Bytes frame(random.oneIn(5) ? 1 + random.below(12) : 12, 0);
    for (std::size_t i = 0; i < frame.size(); ++i) {
      if (i == 4) frame[i] = random.oneIn(10) ? 0x24 : 0x23;
      if (i == 5) frame[i] = random.oneIn(10) ? 0x59 : 0x95;
      if (i == 8) frame[i] = random.oneOf(hex("61 61 61 60 00 64 65 FF"));
    }
    return frame;
  }

 private:
  std::string before_;
};

}  // namespace

std::unique_ptr<Twin> makeTangoTwin() {
  return std::make_unique<TangoTwin>();
}

std::unique_ptr<Twin> makeMEDXINGTwin() {
  return std::make_unique<MEDXINGTwin>();
}

}  // namespace tarsil::twins
