#include "tools/tarsil/run/PrintedLines.hpp"

#include <string>
#include <string_view>
#include <utility>

#include "tarsil/runtime/DispatchQueue.hpp"

namespace tarsil::cli {

PrintedLines::PrintedLines() {
  ProcessHooks hooks;
  // Any thread may print, and in the middle of anything.
  hooks.print = [station = station_](std::string_view text, PrintedText) {
    DispatchQueue::main().async([station, text = std::string(text)] {
      if (const auto listening = station->lock()) listening->note(Printed{text});
    });
  };
  before_ = exchangeProcessHooks(std::move(hooks));
}

PrintedLines::~PrintedLines() {
  exchangeProcessHooks(std::move(before_));
}

}  // namespace tarsil::cli
