#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

#include "tests/twins/slowCodecs.hpp"
#include "tests/twins/twins.hpp"

namespace tarsil::twins {
namespace {

using namespace std::chrono_literals;

std::string powerDigits(float power) {
  std::string digits = std::to_string(truncated(power));
  while (digits.size() < 3) digits.insert(0, "0");
  return digits.substr(0, 3);
}

/// The number that a text is; stops where it is none.
float numberOrStop(const std::string& digits) {
  const bool isNumber = !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
  if (!isNumber) throw Stops();
  return std::stof(digits);
}

class P10Twin : public Twin {
 public:
  void setLoad(float power, float /*grade*/) override { sendText(powerDigits(power) + "W\r"); }
  void requestLoad() override {
    sendText("D\r");
    later("B\r");
  }
  void stopStressDevice() override {
    for (int i = 0; i < 3; ++i) sendText("F\r");
  }
  void startBP() override {
    isBPCommand = true;
    sendText("S\r");
    later("U\r");
  }
  void requestBP() override { sendText("O\r"); }

  void advance(Duration duration) override {
    const Duration end = now + duration;
    while (!due_.empty() && due_.front().first <= end) {
      sendText(due_.front().second);
      due_.erase(due_.begin());
    }
    now = end;
  }

  void receive(ByteView chunk) override {
    result.append(chunk.begin(), chunk.end());
    if (!has('\r')) return;
    // Of the text as it stands when a step asks for it.
    const auto field = [this] {
      return result.size() < 2 ? "范围越界" : result.substr(1, std::min<std::size_t>(result.size() - 1, 3));
    };
    if (has('B')) power(numberOrStop(field()));
    if (has('n')) rate(numberOrStop(field()));
    if (has('O')) {
      systolic_ = numberOrStop(field());
      isBPCommand = systolic_ && diastolic_;
    }
    if (has('U')) {
      diastolic_ = numberOrStop(field());
      isBPCommand = systolic_ && diastolic_;
    }
    if (!isBPCommand) return;
    if (!systolic_ || !diastolic_) throw Stops();
    managerCalls.push_back(bloodPressure(*systolic_, *diastolic_, 0));
    systolic_.reset();
    diastolic_.reset();
  }

  Bytes chunk(Random& random) override {
    std::string reply(1, random.oneOf(std::string("BnOUx")));
    for (int i = 0; i < 3; ++i) reply += static_cast<char>('0' + random.below(10));
    if (random.oneIn(15)) reply[1 + random.below(3)] = random.oneOf(std::string("\r nW"));
    if (random.oneIn(12)) return text(reply);
    return text(reply + "\r");
  }

 protected:
  virtual void power(float value) = 0;
  virtual void rate(float value) = 0;

  bool isBPCommand = false;
  std::string result;

 private:
  bool has(char marker) const { return result.find(marker) != std::string::npos; }
  void later(const std::string& characters) { due_.emplace_back(now + 100ms, characters); }

  std::optional<float> systolic_;
  std::optional<float> diastolic_;
  std::vector<std::pair<Duration, std::string>> due_;
};

class ErgolineTwin final : public P10Twin {
 public:
  void startDeivce() override { sendText("s\r"); }

 protected:
  void power(float value) override { managerCalls.push_back(ergometerPower(value)); }
  void rate(float value) override { managerCalls.push_back(ergometerRpm(value)); }
};

class ErgosanaTwin final : public P10Twin {
 public:
  void startDeivce() override { sendText("S\r"); }

 protected:
  void power(float value) override {
    calls.push_back(ergometerPower(value));
    result.clear();
  }
  void rate(float value) override {
    calls.push_back(ergometerRpm(value));
    result.clear();
  }
};

class ErgometricsTwin final : public Twin {
 public:
  void setLoad(float power, float /*grade*/) override { sendText(powerDigits(power) + "\r"); }
  void requestLoad() override {
    sendText("W\r");
    sendText("D\r");
  }
  void startDeivce() override { sendText("S\r"); }
  void stopStressDevice() override {
    sendText("F\r");
    sendText("F\r");
  }
  void startBP() override {
    sendText("S\r");
    sendText("U\r");
  }
  void requestBP() override { sendText("O\r"); }
};

class LodeErgometerTwin final : public Twin {
 public:
  void setLoad(float power, float /*grade*/) override {
    const std::string padded = "0000" + decimalText(power);
    std::string digits;
    for (const char character : padded.substr(padded.size() - 3)) digits += std::string("3") + character;
    send(bytesOf("312C5350" + digits + "0D"));
  }
  void requestLoad() override {
    sendText("1,PM\r");
    sendText("1,RM\r");
  }
  void startBP() override { sendText("1,BS\r"); }
  void breakBP() override { sendText("1,BQ\r"); }
  void requestBP() override { sendText("1,BR\r"); }
};

}  // namespace

std::unique_ptr<Twin> makeErgolineTwin() {
  return std::make_unique<ErgolineTwin>();
}

std::unique_ptr<Twin> makeErgosanaTwin() {
  return std::make_unique<ErgosanaTwin>();
}

std::unique_ptr<Twin> makeErgometricsTwin() {
  return std::make_unique<ErgometricsTwin>();
}

std::unique_ptr<Twin> makeLodeErgometerTwin() {
  return std::make_unique<LodeErgometerTwin>();
}

}  // namespace tarsil::twins
