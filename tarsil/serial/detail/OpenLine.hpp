#pragma once

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <vector>

#include "tarsil/platform/Terminal.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil::detail {

/// One opening of a terminal, from its descriptor to the descriptor's end. The port and its handlers share
/// it, so that the terminal gets its attributes back and is closed exactly once, whoever goes last.
///
/// Any thread. The descriptor is closed only while no other call is on its way: a number that the system gave
/// to another file meanwhile never gets this line's bytes.
class OpenLine {
 public:
  /// The failure of calls once the line is being restored or closed, or was, as a terminal's for output that
  /// it gave up. Whoever lost the race against closing has nothing to report.
  static constexpr int closedMeanwhile = ESHUTDOWN;

  OpenLine(std::shared_ptr<Terminal> terminal, int descriptor);
  /// Restores and closes, unless that was done.
  ~OpenLine();
  OpenLine(const OpenLine&) = delete;
  OpenLine& operator=(const OpenLine&) = delete;

  int descriptor() const { return descriptor_; }

  Result<> clearStatusFlags();
  /// Keeps the attributes of this moment, to be restored at the end.
  Result<> saveAttributes();
  Result<TerminalAttributes> getAttributes();
  Result<> setAttributes(const TerminalAttributes& attributes);
  Result<> setSpecialSpeed(const TerminalAttributes& attributes);
  Result<int> getModemLines();
  Result<> setModemLines(int lines);
  Result<std::size_t> read(void* buffer, std::size_t size);
  /// How many bytes there are at least that `read` does not wait for.
  std::size_t heldInput();
  Result<std::size_t> write(ByteView bytes);
  /// A further descriptor of this opening.
  Result<int> duplicate();

  /// Switches flow control off, so that waiting output goes out, waits for it, and puts the saved attributes
  /// back. From its beginning on no settings are taken and nothing is written. Answers what failed, as errno
  /// values. The first call does it; another one waits for it and answers nothing.
  std::vector<int> restoreAttributes();
  /// Closes the descriptor when no call uses it any more. It is gone even when that fails. The first call
  /// does it.
  Result<> close();

 private:
  template <class Call>
  auto use(Call call) -> decltype(call());
  Result<> change(const std::function<Result<>()>& call);
  void beginRestoring();
  /// True from the beginning of restoring to the descriptor's end, which answers for itself.
  bool isRestored() const { return restoring_ && ended_ == 0; }
  Result<> switchFlowControlOff();
  Result<> putSavedAttributesBack();

  const std::shared_ptr<Terminal> terminal_;
  const int descriptor_;
  std::optional<TerminalAttributes> saved_;
  std::once_flag restored_;
  /// Held while settings change, so that none does once restoring has begun.
  std::mutex changing_;
  std::atomic<bool> restoring_ = false;
  /// A call said that there is no such device any more.
  std::atomic<bool> vanished_ = false;
  /// Shared by the calls that use the descriptor.
  std::shared_mutex inUse_;
  /// The failure of calls once the end has begun, 0 before.
  std::atomic<int> ended_ = 0;
};

}  // namespace tarsil::detail
