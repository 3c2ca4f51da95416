#include "tools/tarsil/console/Prompt.hpp"

#include <unistd.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <utility>

#include "tarsil/runtime/DispatchQueue.hpp"
#include "tarsil/runtime/DispatchSource.hpp"
#include "tools/tarsil/run/Display.hpp"

#ifdef TARSIL_HAS_LIBEDIT
#include <editline/readline.h>
#endif

namespace tarsil::cli {
namespace {

#ifdef TARSIL_HAS_LIBEDIT
constexpr bool canEdit = true;
#else
constexpr bool canEdit = false;
#endif

constexpr const char* clearLine = "\r\x1b[K";

/// The editor calls a plain function.
Prompt* thePrompt = nullptr;

bool isTerminal() {
  return isatty(STDIN_FILENO) && isatty(STDOUT_FILENO) && Display::ofEnvironment().canBeDrawnOn;
}

}  // namespace

Prompt::Prompt(std::function<void(const std::string&)> onLine, std::function<void()> onEnd)
    : onLine_(std::move(onLine)), onEnd_(std::move(onEnd)), isEdited_(canEdit && isTerminal()) {
  thePrompt = this;
#ifdef TARSIL_HAS_LIBEDIT
  if (isEdited_) {
    // Signals belong to who made this.
    rl_catch_signals = 0;
    using_history();
    rl_callback_handler_install("", takeLine);
  }
#endif
  source_ = DispatchSource::read(STDIN_FILENO, DispatchQueue::main());
  source_->setEventHandler([this] { readSome(); });
  source_->resume();
}

Prompt::~Prompt() {
  source_->cancel();
  if (isEdited_) std::cout << clearLine << std::flush;
#ifdef TARSIL_HAS_LIBEDIT
  if (isEdited_) rl_callback_handler_remove();
#endif
  thePrompt = nullptr;
}

void Prompt::setText(const std::string& text) {
  if (!isEdited_ || text == text_ || hasEnded_) return;
  text_ = text;
#ifdef TARSIL_HAS_LIBEDIT
  rl_set_prompt(text.c_str());
#endif
  redraw();
}

void Prompt::print(const std::string& line) {
  if (isEdited_ && !isTaking_ && !hasEnded_) std::cout << clearLine;
  std::cout << line << std::endl;
  redraw();
}

// The editor draws only what has changed since it drew last, and knows nothing of lines that came between.
void Prompt::redraw() const {
  if (!isEdited_ || isTaking_ || hasEnded_) return;
  std::cout << clearLine << text_ << typed_;
  // The cursor stands where the person left it.
  if (behindCursor_ > 0) std::cout << "\x1b[" << behindCursor_ << 'D';
  std::cout << std::flush;
}

void Prompt::readSome() {
  if (!isEdited_) return readPlainly();
#ifdef TARSIL_HAS_LIBEDIT
  // It would wait for a key of a terminal that is gone.
  if (!isatty(STDIN_FILENO)) return end();
  rl_callback_read_char();
  const bool wasTaken = std::exchange(isTaking_, false);
  typed_ = wasTaken ? "" : rl_line_buffer;
  behindCursor_ = wasTaken ? 0 : rl_end - rl_point;
  // Between two lines it leaves the terminal as it was before.
  if (wasTaken && !hasEnded_) rl_callback_handler_install(text_.c_str(), takeLine);
#endif
}

void Prompt::takeLine([[maybe_unused]] char* line) {
#ifdef TARSIL_HAS_LIBEDIT
  if (!line) return thePrompt->end();
  const std::string typed = line;
  std::free(line);
  if (!typed.empty()) add_history(typed.c_str());
  // What is said meanwhile stands below the line.
  thePrompt->isTaking_ = true;
  thePrompt->onLine_(typed);
#endif
}

void Prompt::readPlainly() {
  std::array<char, 4096> buffer{};
  const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
  if (count <= 0) {
    if (!begun_.empty()) onLine_(std::exchange(begun_, ""));
    return end();
  }
  begun_.append(buffer.data(), static_cast<std::size_t>(count));
  for (std::size_t lineEnd = begun_.find('\n'); lineEnd != std::string::npos; lineEnd = begun_.find('\n')) {
    const std::string line = begun_.substr(0, lineEnd);
    begun_.erase(0, lineEnd + 1);
    onLine_(line);
  }
}

void Prompt::end() {
  if (std::exchange(hasEnded_, true)) return;
  source_->cancel();
  onEnd_();
}

}  // namespace tarsil::cli
