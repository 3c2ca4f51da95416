#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/platform/Terminal.hpp"
#include "tarsil/runtime/AnnouncedDescriptor.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil::doubles {

/// A terminal whose device is the program itself: it hands the port what the program delivers, keeps what the
/// port does to it, and fails when it is told to.
///
/// Its descriptor is a real one (a socket), so that waiting for bytes works as for any terminal. Like a real
/// device it has one opener at a time; a second one fails with EAGAIN. Any thread.
class ScriptedTerminal : public Terminal {
 public:
  enum class Call : std::uint8_t {
    open,
    clearStatusFlags,
    getAttributes,
    setAttributes,
    setSpecialSpeed,
    getModemLines,
    setModemLines,
    read,
    write,
    duplicate,
    close,
  };

  /// One successful `setAttributes` or `setSpecialSpeed`.
  struct Applied {
    Apply when = Apply::now;
    bool special = false;
    TerminalAttributes attributes;
  };

  ScriptedTerminal() = default;
  /// With these settings in force before anybody opens it.
  explicit ScriptedTerminal(const TerminalAttributes& initial);
  ~ScriptedTerminal() override;
  ScriptedTerminal(const ScriptedTerminal&) = delete;
  ScriptedTerminal& operator=(const ScriptedTerminal&) = delete;

  // The device's side.

  /// Bytes that the port reads in one piece (in pieces of 1024 when there are more). They are lost when
  /// nobody has the terminal open; no bytes deliver nothing.
  void deliver(ByteView bytes);
  /// What the write calls took, one entry a call; a call that failed has none.
  std::vector<Bytes> written() const;
  void forgetWritten();
  /// Called with the bytes of each write that took some, on the writing thread, before `write` returns. It
  /// may deliver an answer; it may not run the run loop.
  void onWrite(std::function<void(const Bytes&)> device);
  /// TIOCM_ bits of the lines that the device drives (CTS, DSR, CD).
  void setInputLines(int lines);
  /// TIOCM_ bits of the lines that the port drives (RTS, DTR).
  int outputLines() const;
  /// The device vanishes: what was not read yet is lost, calls fail with ENXIO, opening with ENOENT; reading
  /// gives 0 bytes, as a hung-up terminal does, and closing works.
  void vanish();
  /// The device can be opened again.
  void comeBack();

  // Failures on cue.

  /// The next call of this kind that has no cue yet fails; several cues are used up one after another. A
  /// `close` that fails has closed the descriptor all the same, as on Linux.
  void failNext(Call call, int errorNumber);
  /// Calls of this kind fail until `succeed(call)`.
  void failAlways(Call call, int errorNumber);
  /// Drops all cues for calls of this kind.
  void succeed(Call call);
  /// The next write without such a cue takes at most this many bytes, 0 included.
  void takeNextWrite(std::size_t atMost);

  // What the port did.

  bool isOpen() const;
  /// The path of the last call of `open`.
  std::string openedPath() const;
  TerminalAttributes attributes() const;
  /// Every change of settings, first to last.
  std::vector<Applied> applied() const;
  /// Every call, failed ones included, first to last.
  std::vector<Call> calls() const;
  std::size_t count(Call call) const;
  void forgetCalls();
  /// Calls with a descriptor that was not open at that moment: somebody used it after it was closed.
  std::size_t strayCalls() const;

  // The port's side.

  Result<int> open(const std::string& path) override;
  Result<> clearStatusFlags(int descriptor) override;
  Result<TerminalAttributes> getAttributes(int descriptor) override;
  Result<> setAttributes(int descriptor, Apply when, const TerminalAttributes& attributes) override;
  Result<> setSpecialSpeed(int descriptor, const TerminalAttributes& attributes) override;
  Result<int> getModemLines(int descriptor) override;
  Result<> setModemLines(int descriptor, int lines) override;
  Result<std::size_t> read(int descriptor, void* buffer, std::size_t size) override;
  Result<std::size_t> write(int descriptor, const void* bytes, std::size_t size) override;
  Result<int> duplicate(int descriptor) override;
  Result<> close(int descriptor) override;

 private:
  static constexpr int closed = -1;

  /// Notes the call; hands back its error number when it is to fail, else 0.
  int begin(Call call);
  int beginOn(int descriptor, Call call);
  bool isStray(int descriptor);
  void apply(Apply when, bool special, const TerminalAttributes& attributes);
  void feedSocket();
  void closeDeviceEnd();

  mutable std::mutex mutex_;
  int portEnd_ = closed;
  int deviceEnd_ = closed;
  /// Of the port's end, while it is open.
  std::optional<AnnouncedDescriptor> arrivals_;
  bool vanished_ = false;
  std::string openedPath_;
  TerminalAttributes attributes_;
  int inputLines_ = 0;
  int outputLines_ = 0;
  /// Delivered bytes that the socket had no room for yet.
  std::deque<Bytes> backlog_;
  std::vector<Bytes> written_;
  std::function<void(const Bytes&)> device_;
  std::map<Call, std::deque<int>> failNext_;
  std::map<Call, int> failAlways_;
  std::deque<std::size_t> takeNextWrite_;
  std::vector<Applied> applied_;
  std::vector<Call> calls_;
  std::size_t strayCalls_ = 0;
};

/// "setAttributes" and so on.
const char* name(ScriptedTerminal::Call call);

}  // namespace tarsil::doubles
