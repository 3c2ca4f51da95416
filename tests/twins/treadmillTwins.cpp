#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <optional>
#include <utility>

#include "tests/twins/slowCodecs.hpp"
#include "tests/twins/twins.hpp"

namespace tarsil::twins {
namespace {

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;

float asFloat(std::int64_t value) {
  return static_cast<float>(value);
}

class LodeTreadmillTwin final : public Twin {
 public:
  void startDeivce() override { command("01", "00", ""); }
  void stopStressDevice() override { command("03", "00", ""); }
  void deviceState() override { command("02", "00", ""); }
  void startBP() override { command("41", "00", ""); }
  void breakBP() override { command("43", "00", ""); }
  void requestBP() override { command("44", "00", ""); }
  void requestSpO2() override { command("0E", "00", ""); }
  void setLoad(float speed, float grade) override {
    const std::string speedText = valueText(speed);
    const std::string gradeText = valueText(grade);
    command("05", "02", speedText);
    command("07", "02", gradeText);
  }
  void requestLoad() override {
    grade_ = -1;
    command("08", "00", "");
    command("0A", "00", "");
  }

  void receive(ByteView chunk) override {
    result_.push_back(upperHex(chunk));
    const std::size_t count = result_.size();
    if (count < 6) return;
    if (checkOf(twoDigitValues(Texts(result_.begin(), result_.end() - 1))) !=
        Texts{result_[count - 2], result_[count - 1]})
      return;
    const std::string code = result_[1];
    const std::string status = result_[2];
    if (status != "80") {
      result_.clear();
      calls.push_back(error(status, message(status)));
      return;
    }
    if (code == "08") speed_ = asFloat(numberOf(result_[4] + result_[5]));
    if (code == "0A") grade_ = asFloat(numberOf(result_[4] + result_[5]));
    if (grade_ != -1 && speed_ != -1) calls.push_back(treadmillLoad(speed_, grade_));
    if (code == "44" && count == 15) throw Stops();
    if (code != "44") result_.clear();
  }

  Bytes chunk(Random& random) override {
    if (plan_.empty()) plan(random);
    const Bytes next = plan_.front();
    plan_.pop_front();
    return next;
  }

 private:
  static std::string valueText(float value) {
    const std::string digits = lowerHex(truncated(value * 10.0F));
    return "00 " + std::string(digits.size() == 1 ? "0" : "") + digits;
  }

  static std::vector<std::int64_t> twoDigitValues(const Texts& pieces) {
    std::vector<std::int64_t> values;
    for (const std::string& piece : pieces) {
      if (piece.size() == 2) values.push_back(numberOf(piece));
    }
    return values;
  }

  void command(const std::string& code, const std::string& length, const std::string& data) {
    command_ = code;
    std::string frame = "02 " + code + " " + length + " " + data;
    const Texts check = checkOf(twoDigitValues(piecesOf(frame)));
    frame += check[0] + check[1] + "03";
    std::string digits;
    for (const char character : frame) {
      if (character != ' ') digits += character;
    }
    send(bytesOf(digits));
  }

  std::string message(const std::string& status) const {
    static const std::map<std::pair<std::string, std::string>, std::string> messages{
        {{"01", "01"}, "treadmill could not be started, there is an error"},
        {{"01", "02"}, "treadmill could not be started, emergency stop active"},
        {{"01", "03"}, "treadmill could not be started, other issue"},
        {{"03", "01"}, "there is an error"},
        {{"03", "02"}, "other issue"},
        {{"05", "01"}, "treadmill could not set target, there is an error"},
        {{"05", "02"}, "treadmill could not set target, no session active"},
        {{"05", "04"}, "treadmill could not set speed target, out of range"},
        {{"05", "08"}, "treadmill could not set speed, emergency stop active"},
        {{"07", "01"}, "treadmill could not set targets, there is an error"},
        {{"07", "02"}, "treadmill could not set targets, no session active"},
        {{"07", "04"}, "treadmill could not set elevation target, out of range"},
        {{"07", "08"}, "treadmill could not set elevation, emergency stop active"},
        {{"41", "01"}, "blood pressure measurement could not be started, there is an error"},
        {{"41", "02"}, "blood pressure measurement could not be started, option not available"},
        {{"43", "01"}, "blood pressure measurement could not be aborted, there is an error"},
        {{"43", "02"}, "blood pressure measurement could not be aborted, option not available"}};
    const bool isMoving = command_ == "01" || command_ == "03" || command_ == "05" || command_ == "07" ||
                          command_ == "41" || command_ == "43";
    if (status == "40" && isMoving) return "treadmill not in terminal mode";
    const auto found = messages.find({command_, status});
    return found == messages.end() ? "" : found->second;
  }

  void plan(Random& random) {
    if (result_.empty() && !random.oneIn(10)) {
      plan_.push_back({0x02});
      plan_.push_back({random.oneOf(hex("08 0A 08 0A 44 01 05 42"))});
      plan_.push_back({random.oneOf(hex("80 80 80 80 01 02 03 04 08 40 10"))});
      for (unsigned more = random.below(5); more > 0; --more)
        plan_.push_back({static_cast<std::uint8_t>(random.below(256))});
      return;
    }
    if (result_.size() >= 4 && random.oneIn(2)) {
      planCheck();
    } else if (random.oneIn(20)) {
      plan_.push_back({0x02, static_cast<std::uint8_t>(random.below(256))});
    }
    if (plan_.empty()) plan_.push_back({static_cast<std::uint8_t>(random.below(256))});
  }

  /// The two bytes, if there are any, with which the list is accepted: its check covers the first of them.
  void planCheck() {
    for (unsigned low = 0; low < 256; ++low) {
      auto values = twoDigitValues(result_);
      values.push_back(low);
      const Texts check = checkOf(values);
      if (numberOf(check[0]) != low) continue;
      plan_.push_back(bytesOf(check[0]));
      plan_.push_back(bytesOf(check[1]));
      return;
    }
  }

  std::string command_;
  Texts result_;
  float speed_ = -1;
  float grade_ = -1;
  std::deque<Bytes> plan_;
};

class LodeOEMTreadmillTwin final : public Twin {
 public:
  void startDeivce() override { command("0B", "00 00"); }
  void stopStressDevice() override { command("0C", "00 00"); }
  void requestLoad() override { command("0A", "00 00"); }
  void deviceState() override {
    isState_ = true;
    command("0A", "00 00");
  }
  void setLoad(float speed, float grade) override {
    const std::string speedText = lowerHex(truncated(speed * 10.0F));
    const std::string gradeText = lowerHex(truncated(grade));
    command("09", "00 0D 01 00 00 00 " + speedText + " 00 " + gradeText + " 00 00 00 00 00 00");
  }

  void receive(ByteView chunk) override {
    result_.push_back(upperHex(chunk));
    const std::size_t count = result_.size();
    if (count < 6) return;
    const Texts check = checkOf(otherValues(Texts(result_.begin(), result_.end() - 1)));
    if (check != Texts{result_[count - 2], result_[count - 1]}) return;
    if (result_[2] == "EF") calls.push_back(error("", "send failure"));
    if (result_[2] != "0A") return;
    if (isState_) {
      isState_ = false;
      calls.push_back(deviceIsReady(true));
      return;
    }
    if (count < 12) throw Stops();
    calls.push_back(treadmillLoad(asFloat(numberOf(result_[8] + result_[9])),
                                  asFloat(numberOf(result_[10] + result_[11]))));
  }

  Bytes chunk(Random& random) override {
    if (result_.size() == 2) return {random.oneOf(hex("0A 0A 0A EF 0B"))};
    if (random.oneIn(60)) return random.oneOf(std::vector<Bytes>{{1, 2}, {0, 0x12, 0x34}, {1, 0, 0}});
    // Two zeros are the check of whole bytes.
    return {random.oneIn(2) ? std::uint8_t{0} : static_cast<std::uint8_t>(random.below(256))};
  }

 private:
  static std::vector<std::int64_t> otherValues(const Texts& pieces) {
    std::vector<std::int64_t> values;
    for (const std::string& piece : pieces) {
      if (piece.empty() || piece.size() == 2) continue;
      values.push_back(numberOf(piece));
      if (values.back() > 0xFFFF) throw Stops();
    }
    return values;
  }

  void command(const std::string& code, const std::string& payload) {
    const std::string frame = "AC 01 " + code + " " + payload;
    const Texts check = checkOf(otherValues(piecesOf(frame)));
    std::string digits;
    for (const char character : frame + check[0] + check[1]) {
      if (character != ' ') digits += character;
    }
    send(bytesOf(digits));
  }

  bool isState_ = false;
  Texts result_;
};

class TM400Twin final : public Twin {
 public:
  void startDeivce() override { send(hex("23 E3 10 00 10 00 FD")); }
  void stopStressDevice() override { send(hex("23 E3 10 00 20 00 ED")); }
  /// No text of a grade reads as an integer, so that no grade is ever sent.
  void setLoad(float speed, float /*grade*/) override {
    const double tenths = std::strtod(decimalText(speed).c_str(), nullptr) * 10;
    const std::string value = lowerHex(truncated(std::strtof(decimalText(tenths).c_str(), nullptr)));
    const std::int64_t sum = 0xE3 + 0x61 + numberOf(value);
    send(bytesOf("23E30061" + value + "00" + lowerHex(0x100 - (sum ^ 0x100))));
  }
};

class TrackMasterTwin final : public Twin {
 public:
  void startDeivce() override { send({0xA1}); }
  void setLoad(float speed, float grade) override {
    isStop_ = false;
    sendSpeed(speed);
    sendGrade(grade);
  }
  void requestLoad() override {
    if (lastRequest_ && now - *lastRequest_ < 800ms) return;
    lastRequest_ = now;
    grade_ = speed_ = -1;
    poll();
  }
  void deviceState() override {
    isState_ = true;
    requestLoad();
  }
  void stopStressDevice() override {
    if (isStop_) return;
    sendSpeed(0);
    sendGrade(0);
    isStop_ = true;
    // The one before is forgotten, not ended.
    ticks_.push_back(now + 1s);
    newest_ = ticks_.size() - 1;
  }
  void advance(Duration duration) override {
    for (const Duration end = now + duration; now < end;) {
      now += 100ms;
      for (std::size_t i = 0; i < ticks_.size(); ++i) {
        if (ticks_[i] != now) continue;
        *ticks_[i] += 1s;
        tick();
      }
    }
  }

  void receive(ByteView chunk) override {
    result_ += upperHex(chunk);
    while (!isCode(front())) {
      if (result_.empty()) throw Stops();
      drop(2);
    }
    const std::string code = front();
    if (code == "B1" || code == "B2" || code == "B3" || code == "B4") {
      calls.push_back(successfully());
      return drop(2);
    }
    if (code == "BE" || code == "BF") {
      if (isState_) calls.push_back(deviceIsReady(false));
      calls.push_back(error("00", code == "BE" ? "Beyond the limit" : "disable instruction"));
      return drop(2);
    }
    if (result_.size() < 20) return;
    if (code == "D1") {
      if (isState_) {
        calls.push_back(deviceIsReady(true));
        isState_ = false;
        return;
      }
      if (const auto number = takeNumber()) speed_ = *number / 10 * 1.6F;
    }
    if (front() == "D2") {
      if (const auto number = takeNumber()) grade_ = *number / 10;
    }
    report();
  }

  Bytes chunk(Random& random) override {
    Bytes bytes;
    if (random.oneIn(30)) bytes.push_back(static_cast<std::uint8_t>(random.below(256)));
    if (random.oneIn(3)) {
      bytes.push_back(random.oneOf(hex("B1 B2 B3 B4 BE BF")));
      return bytes;
    }
    append(bytes, reply(0xD1, random));
    append(bytes, reply(0xD2, random));
    if (random.oneIn(8)) bytes.resize(1 + random.below(static_cast<unsigned>(bytes.size())));
    return bytes;
  }

 private:
  static void append(Bytes& bytes, const Bytes& more) { bytes.insert(bytes.end(), more.begin(), more.end()); }
  static Bytes reply(std::uint8_t code, Random& random) {
    Bytes bytes{code};
    const bool stands = random.oneIn(2);
    for (int i = 0; i < 4; ++i)
      bytes.push_back(static_cast<std::uint8_t>('0' + (stands ? 0 : random.below(10))));
    if (random.oneIn(30)) bytes[1 + random.below(4)] = 0x3A;
    return bytes;
  }

  static bool isCode(const std::string& code) {
    for (const char* known : {"B1", "B2", "B3", "B4", "BE", "BF", "D1", "D2"}) {
      if (code == known) return true;
    }
    return false;
  }

  static std::string oneDecimal(float value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.1f", static_cast<double>(value));
    return buffer;
  }

  void sendSpeed(float kmph) {
    if ((kmph > 0 && kmph < 0.7F) || kmph > 19) {
      calls.push_back(error("01", "Power Beyond the limit"));
      return;
    }
    const std::string mph = oneDecimal(kmph * 0.625F);
    // What is no number has no digits behind a point.
    if (mph.find('.') == std::string::npos) throw Stops();
    const std::string whole = mph.substr(0, mph.find('.'));
    const std::string digits =
        whole.size() < 2 ? "303" + whole : "3" + whole.substr(0, 1) + "3" + whole.substr(1, 1);
    send(bytesOf("A3" + digits + "3" + mph.substr(mph.find('.') + 1, 1)));
  }

  void sendGrade(float grade) {
    const std::int64_t tenths = truncated(grade) * 10;
    if (tenths > 250 || (grade > 0 && grade < 0.5F)) {
      calls.push_back(error("01", "Grade Beyond the limit"));
      return;
    }
    const std::string digits = "0000" + std::to_string(tenths);
    std::string frame = "A4";
    for (const char digit : digits.substr(digits.size() - 4)) frame += std::string("3") + digit;
    send(bytesOf(frame));
  }

  void poll() {
    send({0xC1});
    send({0xC2});
  }

  void tick() {
    if (!isStaticState_ || !isStop_) return poll();
    send({0xA2});
    isStop_ = false;
    grade_ = speed_ = -1;
    if (newest_) ticks_[*newest_].reset();
    newest_.reset();
  }

  std::string front() const { return result_.substr(0, 2); }
  void drop(std::size_t characters) {
    result_ = result_.size() < characters + 1 ? "" : result_.substr(characters);
  }

  std::optional<float> takeNumber() {
    const std::string digits{result_[3], result_[5], result_[7], result_[9]};
    if (digits.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
    drop(10);
    return std::strtof(digits.c_str(), nullptr);
  }

  void report() {
    if (isStop_) {
      isStaticState_ = grade_ == 0 && speed_ == 0;
    } else if (grade_ != -1 && speed_ != -1) {
      speed_ = std::strtof(oneDecimal(speed_).c_str(), nullptr);
      calls.push_back(treadmillLoad(speed_, grade_));
    }
  }

  std::string result_;
  bool isState_ = false;
  bool isStop_ = false;
  bool isStaticState_ = false;
  float speed_ = -1;
  float grade_ = -1;
  std::optional<Duration> lastRequest_;
  /// When each timer fires next; none: it was ended.
  std::vector<std::optional<Duration>> ticks_;
  std::optional<std::size_t> newest_;
};

}  // namespace

std::unique_ptr<Twin> makeLodeTreadmillTwin() {
  return std::make_unique<LodeTreadmillTwin>();
}

std::unique_ptr<Twin> makeLodeOEMTreadmillTwin() {
  return std::make_unique<LodeOEMTreadmillTwin>();
}

std::unique_ptr<Twin> makeTM400Twin() {
  return std::make_unique<TM400Twin>();
}

std::unique_ptr<Twin> makeTrackMasterTwin() {
  return std::make_unique<TrackMasterTwin>();
}

}  // namespace tarsil::twins
