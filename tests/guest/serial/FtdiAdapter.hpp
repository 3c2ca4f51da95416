#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tarsil/runtime/Clock.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/support/bytes.hpp"
#include "tests/guest/serial/UsbPlug.hpp"

namespace tarsil {

/// A USB adapter of the most usual kind, an FT232R, in software: the kernel's own driver sets its line, sends
/// and receives through it. Bytes leave at the speed that the driver set; what is received is handed over as
/// the latency timer and the size of a packet say. Main thread.
class FtdiAdapter {
 public:
  /// The line's far end.
  struct FarEnd {
    /// Hears what leaves the adapter, when it begins to leave.
    std::function<void(const Bytes&)> sent;
    /// What the driver did, in one line: "line 9600 8N1", "outputs dtr rts", "latency 16", "break on".
    std::function<void(const std::string&)> told;
  };
  /// What can be wrong with a character, by its bit in what the adapter tells of its line.
  enum class Fault : std::uint8_t {
    none = 0x00,
    overrun = 0x02,
    parity = 0x04,
    framing = 0x08,
    breaks = 0x10
  };
  struct Inputs {
    bool cts = false;
    bool dsr = false;
    bool ri = false;
    bool dcd = false;
  };

  /// `socket` of the virtual host controller. Pulled out at first.
  FtdiAdapter(unsigned socket, std::string serialNumber, FarEnd farEnd);
  ~FtdiAdapter();
  FtdiAdapter(const FtdiAdapter&) = delete;
  FtdiAdapter& operator=(const FtdiAdapter&) = delete;

  /// As soon as the socket is free.
  void plugIn();
  /// What it holds is lost.
  void pullOut();

  /// Bytes from the line; `fault` spoils each of them.
  void receive(ByteView bytes, Fault fault = Fault::none);
  /// CTS, DSR and DCD are on at first.
  void setInputs(const Inputs& inputs);
  /// Nothing leaves any more, until it is let go.
  void holdOutput(bool held);
  /// The next time that the driver asks for the modem lines, the transfer fails, as in a disturbed cable.
  void stumble() { stumbles_ = true; }
  /// bit/s, as the driver set it.
  double speed() const { return line_.speed; }

 private:
  struct Chunk {
    Bytes bytes;
    Fault fault = Fault::none;
  };
  struct Output {
    UsbPlug::Transfer transfer = 0;
    Bytes bytes;
  };
  /// As the driver set it.
  struct Line {
    double speed = 9600;
    unsigned dataBits = 8;
    char parity = 'N';
    std::string stopBits = "1";
    bool breaks = false;
    bool dtr = false;
    bool rts = false;
    unsigned latency = 16;  // ms
  };

  std::optional<Bytes> answer(const UsbPlug::Request& request);
  Bytes descriptor(std::uint16_t which) const;
  void obey(const UsbPlug::Request& request);
  void setSpeed(const UsbPlug::Request& request);
  void setCharacters(std::uint16_t value);
  void setOutputs(std::uint16_t value);
  void tellLine() const;

  Bytes status() const;
  void handOver();
  void giveFirst();
  bool isDue() const;
  Clock::Instant nextBeat() const;
  void schedule();
  void sendNext();

  const unsigned socket_;
  const std::string serialNumber_;
  const FarEnd farEnd_;
  std::unique_ptr<UsbPlug> plug_;
  std::shared_ptr<Timer> retry_;

  Line line_;
  Inputs inputs_{.cts = true, .dsr = true, .ri = false, .dcd = true};
  bool inputsAreNews_ = false;
  bool stumbles_ = false;

  std::deque<Chunk> received_;
  Clock::Instant lastHandover_ = Clock::now();
  /// Of the latency timer, after the first of those bytes came.
  Clock::Instant beat_;
  std::shared_ptr<Timer> handover_;

  std::deque<Output> output_;
  bool isHeld_ = false;
  std::shared_ptr<Timer> leaving_;
};

}  // namespace tarsil
