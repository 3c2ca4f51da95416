#include "tools/tarsil/run/PlainView.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <utility>

#include "tarsil/guard/eventText.hpp"

namespace tarsil::cli {
namespace {

/// A device's line ends do not break the table.
std::string onOneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char character) { return static_cast<unsigned char>(character) < ' '; },
      ' ');
  return text;
}

bool isForPeople(const EventText& told) {
  return told.kind != EventKind::traffic && told.word != "requestLoad" && told.word != "accepted" &&
         told.word != "outcome" && told.word != "printed";
}

}  // namespace

PlainView::PlainView(StressDeviceType kind) : kind_(kind) {
  std::cout << fmt::format("{:>7}  {:<9} {:<34} {}\n", "TIME", "DEVICE", "ASKED", "CAME BACK") << std::flush;
}

bool PlainView::hasJustFailed() {
  return !std::cout && !std::exchange(hasFailed_, true);
}

void PlainView::show(const Event& event) {
  const EventText told = textOf(event, kind_);
  if (!isForPeople(told)) return;
  const bool isAnswer = told.kind == EventKind::answered;
  if (isAnswer && std::exchange(lastAnswers_[told.word], told.text) == told.text) return;

  const bool isAsked = told.kind == EventKind::asked;
  const std::string time = clockText(event.at - start_);
  const std::string asked = isAsked ? told.text : "";
  std::string cameBack = isAsked ? "" : onOneLine(told.text);
  if (told.kind == EventKind::failure) cameBack = "FAILURE: " + cameBack;
  if (event.source == Source::station && !isAsked) {
    std::cout << fmt::format("{:>7}  {:-<9} {}\n", time, "", cameBack) << std::flush;
    return;
  }
  std::cout << fmt::format("{:>7}  {:<9} {:<34} {}\n", time, roleOf(event.source), asked, cameBack)
            << std::flush;
}

}  // namespace tarsil::cli
