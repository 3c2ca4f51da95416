#pragma once

#include <termios.h>

#include <array>
#include <csignal>
#include <string>
#include <string_view>
#include <utility>

namespace tarsil::cli {

/// A terminal that shows one screen and gives single keys, unseen: while this object exists, on an alternate
/// screen without a cursor. The keys that would stop or kill the process do nothing, because a belt may move
/// meanwhile; Ctrl-C stays. A terminal that takes no output (Ctrl-S, a slow line) loses pictures and never
/// holds the program up. When the process dies of a signal, the terminal is put back first. One at a time.
class KeyTerminal {
 public:
  /// Descriptors of terminals; throws std::system_error for others.
  KeyTerminal(int input, int output);
  ~KeyTerminal();
  KeyTerminal(const KeyTerminal&) = delete;
  KeyTerminal& operator=(const KeyTerminal&) = delete;

  /// Rows and columns; the usual 24 and 80 where the terminal does not know.
  struct Size {
    int rows = 24;
    int columns = 80;
  };
  Size size() const;
  /// What the terminal does not take is dropped.
  void write(std::string_view text) const;
  /// What stays to be read when the terminal is put back.
  void setFarewell(std::string text) { farewell_ = std::move(text); }

 private:
  static constexpr std::array deadlySignals{SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};

  static void restoreAndDie(int signal);
  void restore() const;

  const int input_;
  const int output_;
  /// The output terminal, opened anew: non-blocking for this object alone.
  int screen_;
  std::string farewell_;
  termios before_{};
  std::array<struct sigaction, deadlySignals.size()> handlersBefore_{};
};

}  // namespace tarsil::cli
