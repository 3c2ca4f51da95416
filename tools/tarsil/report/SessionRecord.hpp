#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/tarsil/run/Journal.hpp"
#include "tarsil/exercise/Protocol.hpp"
#include "tools/tarsil/run/Station.hpp"

namespace tarsil::cli {

/// What a report shows of a session, gathered from its journal. Times are counted from its beginning.
class SessionRecord {
 public:
  struct Sample {
    Duration at{};
    float value = 0;
  };
  using Series = std::vector<Sample>;

  struct PressureSample {
    Duration at{};
    Pressure pressure;
  };

  /// A phase of the protocol as it was run.
  struct Span {
    std::string name;
    Phase planned;
    Duration begin{};
    Duration end{};
  };

  /// Something that a reader of the charts should know of; the same one after the other counts once.
  struct Mark {
    Duration at{};
    std::string text;
    bool isFailure = false;
    std::size_t times = 1;
  };

  explicit SessionRecord(const Protocol& protocol) : protocol_(protocol) {}

  void hear(const Entry& entry);

  const Protocol& protocol() const { return protocol_; }
  /// What the device was told, and what it reported.
  const Series& commandedLoad() const { return commandedLoad_; }
  const Series& commandedGrade() const { return commandedGrade_; }
  const Series& load() const { return load_; }
  const Series& grade() const { return grade_; }
  const Series& pedalRate() const { return pedalRate_; }
  /// Without those of a measurement that gave no pressure.
  const std::vector<PressureSample>& pressures() const { return pressures_; }
  /// A negative value: the oximeter has no finger.
  const Series& saturation() const { return saturation_; }
  const std::vector<Span>& spans() const { return spans_; }
  const std::vector<Mark>& marks() const { return marks_; }
  /// What was expected of the devices and did not come.
  const std::vector<std::string>& missing() const { return missing_; }
  /// The time of the last entry.
  Duration end() const { return end_; }

 private:
  void hearAsked(const Entry& entry);
  void hearAnswered(const Entry& entry);
  void hearEvent(const Entry& entry);
  void beginSpan(Duration at, const std::string& name);
  void endSpan(Duration at);
  void mark(const Entry& entry);

  const Protocol& protocol_;
  Series commandedLoad_;
  Series commandedGrade_;
  Series load_;
  Series grade_;
  Series pedalRate_;
  std::vector<PressureSample> pressures_;
  Series saturation_;
  std::vector<Span> spans_;
  bool spanIsOpen_ = false;
  std::vector<Mark> marks_;
  std::vector<std::string> missing_;
  Duration end_{};
};

}  // namespace tarsil::cli
