#include "tools/tarsil/run/PlainView.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <utility>

#include "tools/tarsil/run/clockText.hpp"

namespace tarsil::cli {
namespace {

/// A device's line ends do not break the table.
std::string onOneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char character) { return static_cast<unsigned char>(character) < ' '; },
      ' ');
  return text;
}

}  // namespace

PlainView::PlainView(Journal& journal) {
  std::cout << fmt::format("{:>7}  {:<9} {:<34} {}\n", "TIME", "DEVICE", "ASKED", "CAME BACK") << std::flush;
  journal.addReader([this](const Entry& entry) { show(entry); });
}

void PlainView::show(const Entry& entry) {
  if (entry.what == "requestLoad" || entry.what == "accepted") return;
  const bool isAnswer = entry.kind == Entry::Kind::answered;
  if (isAnswer && std::exchange(lastAnswers_[entry.what], entry.text) == entry.text) return;

  const bool isAsked = entry.kind == Entry::Kind::asked;
  const std::string asked = isAsked ? entry.text : "";
  std::string cameBack = isAsked ? "" : onOneLine(entry.text);
  if (entry.kind == Entry::Kind::failure) cameBack = "FAILURE: " + cameBack;
  if (entry.role == Role::session) {
    std::cout << fmt::format("{:>7}  {:-<9} {}\n", clockText(entry.at), "", cameBack) << std::flush;
    return;
  }
  std::cout << fmt::format("{:>7}  {:<9} {:<34} {}\n", clockText(entry.at), nameOf(entry.role), asked,
                           cameBack)
            << std::flush;
}

}  // namespace tarsil::cli
