// What the catalogue says that a model's frames can carry, held against the frames that its driver sends, as
// the machine reads them.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tarsil/codec/Crc16Register.hpp"
#include "tarsil/station/standardCatalogue.hpp"
#include "tests/helpers/PrintedLines.hpp"
#include "tests/helpers/ScriptedPort.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil {
namespace {

/// What a machine understands of everything that was written.
struct Understood {
  std::optional<float> speed;
  std::optional<float> grade;
  std::optional<float> power;
};

using Writes = std::vector<Bytes>;

/// The bytes with the positions in `values` set to 0, to compare with a pattern.
Bytes without(Bytes bytes, std::initializer_list<std::size_t> values) {
  for (const std::size_t value : values) bytes.at(value) = 0;
  return bytes;
}

std::optional<float> digits(ByteView bytes) {
  float number = 0;
  for (const std::uint8_t byte : bytes) {
    if (byte < '0' || byte > '9') return std::nullopt;
    number = number * 10 + static_cast<float>(byte - '0');
  }
  return number;
}

Understood lodeTreadmill(const Writes& writes) {
  Understood load;
  for (const Bytes& frame : writes) {
    if (frame.size() != 8) continue;
    Crc16Register crc;
    for (std::size_t i = 0; i < 5; ++i) crc.add(frame[i]);
    if (frame[5] != (crc.value() & 0xFF) || frame[6] != crc.value() >> 8) continue;
    const auto value = static_cast<float>(frame[4]) / 10;
    const Bytes rest = without(frame, {4, 5, 6});
    if (rest == hex("02 05 02 00 00 00 00 03")) load.speed = value;
    if (rest == hex("02 07 02 00 00 00 00 03")) load.grade = value;
  }
  return load;
}

Understood lodeOEMTreadmill(const Writes& writes) {
  Understood load;
  for (const Bytes& frame : writes) {
    if (frame.size() != 20) continue;
    if (without(frame, {9, 11}) != hex("AC 01 09 00 0D 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00"))
      continue;
    load.speed = static_cast<float>(frame[9]) / 10;
    load.grade = static_cast<float>(frame[11]);
  }
  return load;
}

Understood tm400V2(const Writes& writes) {
  Understood load;
  for (const Bytes& frame : writes) {
    if (frame.size() != 7) continue;
    // The bytes behind the first one and their check add up to a multiple of 256.
    if (std::accumulate(frame.begin() + 1, frame.end(), 0) % 256 != 0) continue;
    if (without(frame, {4, 6}) == hex("23 E3 00 61 00 00 00")) load.speed = static_cast<float>(frame[4]) / 10;
    if (without(frame, {5, 6}) == hex("23 E4 00 63 19 00 00")) load.grade = static_cast<float>(frame[5]);
  }
  return load;
}

Understood trackMaster(const Writes& writes) {
  Understood load;
  for (const Bytes& frame : writes) {
    const auto number = digits(ByteView(frame).subspan(1));
    if (!number) continue;
    if (frame.front() == 0xA3 && frame.size() == 4) load.speed = *number / 10 * 1.6F;
    if (frame.front() == 0xA4 && frame.size() == 5) load.grade = *number / 10;
  }
  return load;
}

/// Three digits between a beginning and an end.
std::function<Understood(const Writes&)> powerBetween(const std::string& before, const std::string& after) {
  return [=](const Writes& writes) {
    Understood load;
    for (const Bytes& frame : writes) {
      const std::string command(frame.begin(), frame.end());
      if (command.size() != before.size() + 3 + after.size()) continue;
      if (!command.starts_with(before) || !command.ends_with(after)) continue;
      load.power = digits(ByteView(frame).subspan(before.size(), 3));
    }
    return load;
  };
}

/// How each machine reads what its driver sends.
const std::map<std::string, std::function<Understood(const Writes&)>> machines{
    {"LodeTreadmill", lodeTreadmill},
    {"LodeOEMTreadmill", lodeOEMTreadmill},
    {"TM-400V2", tm400V2},
    {"TrackMaster", trackMaster},
    {"KivBicycle", [](const Writes&) { return Understood{}; }},
    {"Ergometer38K4", powerBetween("1,SP", "\r")},
    {"ErgolineK2.4P10", powerBetween("", "W\r")},
    {"ErgosanaK4.8P10", powerBetween("", "W\r")},
    {"ErgometricsK2.4P3", powerBetween("", "\r")},
};

Understood understood(const std::string& model, const Writes& writes) {
  const auto machine = machines.find(model);
  if (machine == machines.end()) throw std::invalid_argument("how does a " + model + " read its frames?");
  return machine->second(writes);
}

class CarriedLoads : public testing::TestWithParam<DeviceModel> {
 protected:
  const ExerciseFacts& facts() const { return *GetParam().exercise; }

  Understood afterLoad(float speedOrPower, float grade) {
    port.takeSent();
    device->setLoad(speedOrPower, grade);
    port.advance(Duration::zero());
    return understood(GetParam().name, port.takeSent());
  }

  /// Every multiple of a tenth from 0 to `highest`: where it is carried it is read back, where not it is not.
  void expectReadBack(const CarriedRange& range, float highest,
                      const std::function<std::optional<float>(float)>& sentAndRead) {
    for (int i = 0; i <= std::lround(highest * 10); ++i) {
      const float value = static_cast<float>(i) / 10;
      const float step = range.carriesAnything() ? range.step() : 0.1F;
      // A fraction above the highest value is dropped like any other.
      if (range.carriesAnything() && value > range.highest() && value < range.highest() + step) continue;
      const auto read = sentAndRead(value);
      const bool isReadBack =
          read && std::abs(*read - value) < std::max(step * 0.999F, 0.001F) && (value == 0) == (*read == 0);
      EXPECT_EQ(isReadBack, range.carries(value)) << value << " is read as " << read.value_or(-1);
      // To the letter where nothing has to be dropped.
      const bool isWholeSteps = step == 0.1F || (step == 1 && value == std::floor(value));
      if (isReadBack && isWholeSteps) {
        EXPECT_EQ(*read, value);
      }
    }
  }

  static float withinOr(const CarriedRange& range, float otherwise) {
    return range.carriesAnything() ? range.highest() : otherwise;
  }

  PrintedLines printed;
  ScriptedPort port;
  std::shared_ptr<KivStressDevice> device = [this] {
    auto made = GetParam().makeDevice();
    made->setSerialPort(port);
    return made;
  }();
};

TEST_P(CarriedLoads, OfSpeed) {
  const float grade = withinOr(facts().grade, 0);
  expectReadBack(facts().speed, 30, [&](float kmph) { return afterLoad(kmph, grade).speed; });
}

TEST_P(CarriedLoads, OfGrade) {
  const float speed = withinOr(facts().speed, 0);
  expectReadBack(facts().grade, 300, [&](float percent) { return afterLoad(speed, percent).grade; });
}

TEST_P(CarriedLoads, OfPower) {
  expectReadBack(facts().power, 1100, [&](float watts) { return afterLoad(watts, 0).power; });
}

TEST_P(CarriedLoads, AreOfTheKindThatTheModelIs) {
  const bool isTreadmill = GetParam().kind == DeviceKind::treadmill;
  EXPECT_FALSE((isTreadmill ? facts().power : facts().speed).carriesAnything());
  EXPECT_TRUE(isTreadmill || !facts().grade.carriesAnything());
}

std::vector<DeviceModel> exerciseModels() {
  auto models = standardCatalogue().models();
  std::erase_if(models, [](const DeviceModel& model) { return !model.exercise; });
  return models;
}

INSTANTIATE_TEST_SUITE_P(Standard, CarriedLoads, testing::ValuesIn(exerciseModels()),
                         [](const auto& model) { return model.param.className; });

}  // namespace
}  // namespace tarsil
