#pragma once

#include <functional>
#include <string_view>

namespace tarsil {

/// What a printed line is: one of the library's own fixed texts, or words for whoever debugs (errors, raw
/// bytes) that no program should rely on.
enum class PrintedText { fixed, diagnostic };

/// The four ways in which the library touches the process around it. Tools and tests put their own in place
/// to watch them; an empty function stands for the library's own behaviour.
struct ProcessHooks {
  /// Must not return: it may throw, exit or abort. If it returns, the process aborts. What it throws leaves
  /// the library through the host's call of the moment (a command, `RunLoop::processDue`), and everything can
  /// be used on.
  std::function<void(std::string_view reason)> fatal = {};
  /// Must not return: it may throw or block. If it returns, the thread blocks for ever.
  std::function<void()> neverReturn = {};
  /// Receives every line without its line end.
  std::function<void(std::string_view text, PrintedText kind)> print = {};
  /// Sees to it that `handler` is called when the process ends; not 0, with `errno` set, when it cannot.
  std::function<int(void (*handler)())> atExit = {};
};

/// Puts `hooks` in place and hands back the ones that were there. Call it while no other thread runs library
/// code.
ProcessHooks exchangeProcessHooks(ProcessHooks hooks);

/// Puts those of `hooks` that are not empty in place, beside the others that are there, and everything back
/// at its end. Make and drop it while no other thread runs library code.
class ScopedProcessHooks {
 public:
  explicit ScopedProcessHooks(ProcessHooks hooks);
  ~ScopedProcessHooks();
  ScopedProcessHooks(const ScopedProcessHooks&) = delete;
  ScopedProcessHooks& operator=(const ScopedProcessHooks&) = delete;

 private:
  ProcessHooks before_;
};

/// The process stops here: one line on standard error, then std::abort(). Any thread.
/// Called for programming errors and for device values that no honest answer exists for; going on would mean
/// a made-up value.
[[noreturn]] void fatalError(std::string_view reason);

/// The calling thread stays here for ever, without using the processor. Any thread.
[[noreturn]] void neverReturn();

/// Has `handler` called when the process ends by exit() or by a return from main; not 0, with `errno` set,
/// when the system refuses. Any thread.
int atExit(void (*handler)());

/// Says that the process is ending, which nothing takes back. Any thread.
void beginProcessEnd();

/// True from `beginProcessEnd()` on. A host's objects may be gone by then, so that nothing of it is called
/// any more. Any thread.
bool isProcessEnding();

/// One line on standard output, flushed. Any thread.
void printLine(std::string_view text, PrintedText kind);

}  // namespace tarsil
