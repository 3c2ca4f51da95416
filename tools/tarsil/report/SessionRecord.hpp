#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/exercise/Protocol.hpp"
#include "tarsil/guard/Journal.hpp"
#include "tarsil/runtime/Clock.hpp"

namespace tarsil::cli {

/// Keys of what a session's journal knows before its first event.
namespace fact {
inline constexpr const char* program = "program";
/// In its own format.
inline constexpr const char* protocol = "protocol";
inline constexpr const char* model = "model";
inline constexpr const char* port = "port";
inline constexpr const char* monitorPort = "monitorPort";
inline constexpr const char* oximeterPort = "oximeterPort";
inline constexpr const char* adapter = "adapter";
/// "yes" where the devices are simulated.
inline constexpr const char* simulated = "simulated";
/// "yes" where the model reports its load.
inline constexpr const char* reportsLoad = "reportsLoad";
inline constexpr const char* patient = "patient";
inline constexpr const char* operatorName = "operator";
inline constexpr const char* note = "note";
/// The patient's, in kilograms.
inline constexpr const char* mass = "mass";
}  // namespace fact

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

  /// Something that a reader of the charts should know of; what repeats counts once.
  struct Mark {
    Duration at{};
    std::string text;
    bool isFailure = false;
    std::size_t times = 1;
    Duration last{};
  };

  /// Throws ProtocolError when the journal does not hold a protocol.
  explicit SessionRecord(const Journal& journal);

  const JournalHead& head() const { return head_; }
  /// Empty for what is not known.
  std::string factNamed(const char* key) const;
  bool isSimulated() const { return factNamed(fact::simulated) == "yes"; }
  bool reportsLoad() const { return factNamed(fact::reportsLoad) == "yes"; }
  /// Of the patient; none when it is not known.
  std::optional<float> mass() const;

  const Protocol& protocol() const { return protocol_; }
  /// What the device was told, and what it reported.
  const Series& commandedLoad() const { return commandedLoad_; }
  const Series& commandedGrade() const { return commandedGrade_; }
  const Series& load() const { return load_; }
  const Series& grade() const { return grade_; }
  const Series& pedalRate() const { return pedalRate_; }
  const std::vector<PressureSample>& pressures() const { return pressures_; }
  /// A value holds until the next one; a negative one says that none is known from there on.
  const Series& saturation() const { return saturation_; }
  const std::vector<Span>& spans() const { return spans_; }
  const std::vector<Mark>& marks() const { return marks_; }
  /// What was expected of the devices and did not come.
  const std::vector<std::string>& missing() const { return missing_; }
  /// How the test ended, as ExerciseTest names it; empty when the journal ends before.
  const std::string& outcome() const { return outcome_; }
  /// The time of the last event.
  Duration end() const { return end_; }
  /// From the first stage's beginning to the last one's end, without set-up, warm-up and recovery.
  Duration exerciseTime() const;

 private:
  void hear(const Event& event, Duration at);
  void hearAsked(const Asked& asked, Duration at);
  void hearMeasured(const Event& event, Duration at);
  void hearNoted(const Event& event, const Noted& noted, Duration at);
  void hearOximeter(const Event& event, Duration at);
  void loseSaturation(Duration at);
  void beginSpan(Duration at, const PhaseBegan& phase);
  void endSpan(Duration at);
  void markFailure(const Event& event, Duration at);
  void mark(const Event& event, Duration at, bool isFailure);
  bool isTreadmill() const { return protocol_.device == StressDeviceType::Treadmill; }

  const JournalHead head_;
  const Protocol protocol_;
  Series commandedLoad_;
  Series commandedGrade_;
  Series load_;
  Series grade_;
  Series pedalRate_;
  std::vector<PressureSample> pressures_;
  Series saturation_;
  /// The oximeter's last sign of life; none before the first.
  std::optional<Duration> oximeterLived_;
  std::vector<Span> spans_;
  bool spanIsOpen_ = false;
  std::vector<Mark> marks_;
  std::vector<std::string> missing_;
  std::string outcome_;
  Duration end_{};
};

}  // namespace tarsil::cli
