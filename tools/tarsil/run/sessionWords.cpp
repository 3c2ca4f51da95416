#include "tools/tarsil/run/sessionWords.hpp"

#include <algorithm>

namespace tarsil::cli {

std::string stateText(ExerciseTest::State state) {
  switch (state) {
    case ExerciseTest::State::checking:
      return "connecting: every device has to answer";
    case ExerciseTest::State::resting:
      return "at rest: blood pressure before the exercise";
    case ExerciseTest::State::exercising:
      return "";
    case ExerciseTest::State::levelling:
      return "the belt goes down to level";
    case ExerciseTest::State::stopping:
      return "stopping: waiting until the device stands";
    case ExerciseTest::State::closing:
      return "closing the ports";
    case ExerciseTest::State::over:
      return "over";
  }
  return "";
}

std::string nextText(const ExerciseTest& test, bool withName) {
  const std::size_t next = test.phaseIndex() + 1;
  const Protocol& protocol = test.protocol();
  if (next >= protocol.phases.size()) return "the end";
  const Phase& phase = protocol.phases[next];
  const Load load = protocol.device == StressDeviceType::Treadmill
                        ? Load{.speed = phase.load, .grade = phase.grade}
                        : Load{.power = phase.load};
  return (withName ? protocol.phaseName(next) + ": " : "") + textOf(load, protocol.device);
}

bool isNews(const EventText& told) {
  return told.kind != EventKind::traffic && told.word != "requestLoad" && told.word != "load" &&
         told.word != "power" && told.word != "rpm" && told.word != "accepted" && told.word != "saturation" &&
         told.word != "outcome" && told.word != "printed";
}

std::string harmless(std::string text) {
  std::replace_if(
      text.begin(), text.end(),
      [](char byte) { return static_cast<unsigned char>(byte) < ' ' || byte == 0x7f; }, ' ');
  return text;
}

}  // namespace tarsil::cli
