#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulators/Random.hpp"
#include "simulators/Truth.hpp"
#include "tarsil/runtime/Clock.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil::simulators {

class Patient;

/// One simulated device: bytes and time go in, bytes come out. It has no clock, thread or descriptor of its
/// own; its host moves its time and carries its bytes. The same orders always give the same bytes.
class SimulatedDevice {
 public:
  /// `model` is the catalogue's name for it; `patient` is who exercises on it and must outlive it.
  SimulatedDevice(std::string model, std::uint64_t baudRate, Patient& patient);
  virtual ~SimulatedDevice() = default;
  SimulatedDevice(const SimulatedDevice&) = delete;
  SimulatedDevice& operator=(const SimulatedDevice&) = delete;

  const std::string& model() const { return model_; }
  /// Line speed, bit/s.
  std::uint64_t baudRate() const { return baudRate_; }

  /// Bytes from the line.
  void receive(ByteView bytes);
  /// Time passes: belts move, cuffs inflate, values are sent.
  void advance(Duration duration);
  /// A whole message that the device has put on the line.
  struct Message {
    Bytes bytes;
    /// Its driver reads it only when it arrives in one piece.
    bool inOnePiece = false;
  };
  /// What the device has put on the line since the last call.
  std::vector<Message> takeOutput();

  /// What it does in truth at this moment; nothing for a device that nobody exercises on.
  virtual Truth truth() const { return {}; }
  /// How that changed since it began, by its own time.
  const std::vector<TruthAt>& history() const { return history_.entries(); }

  /// One line for a person: what the device is doing now, with units.
  virtual std::string status() const = 0;

  /// @name Orders of a test
  /// @{

  /// The device hears and does everything, but sends nothing.
  void beSilent(bool silent) { silent_ = silent; }
  /// A random byte is mixed in before about every fourth message.
  void beNoisy(bool noisy) { noisy_ = noisy; }
  /// The next message loses one byte in its middle.
  void dropAByte() { dropAByte_ = true; }
  /// Every command is refused with this device-specific code; none ends it.
  void refuseCommands(std::optional<std::string> code) { refusal_ = std::move(code); }
  /// The codes that this device knows; empty for a device that never answers.
  virtual std::vector<std::string> refusalCodes() const { return {}; }

  enum class Button : std::uint8_t { start, stop, emergency };
  /// Somebody presses a button at the machine: after a stop or an emergency stop it stands, and what a host
  /// sends to move it is refused, or ignored where its protocol knows no refusal, until start is pressed or
  /// the emergency stop is released. False when it has no such button.
  virtual bool press(Button /*button*/) { return false; }
  virtual bool release(Button /*button*/) { return false; }
  /// It stops by itself when no command came for half a second, as some machines do. False when this one has
  /// no such setting.
  virtual bool stopWhenUnheard(bool /*stops*/) { return false; }

  /// @}

 protected:
  virtual void onByte(std::uint8_t byte) = 0;
  virtual void onTime(Duration duration) = 0;

  /// Puts a message on the line.
  void send(ByteView message);
  void send(std::string_view message);
  /// Puts a message on the line that its driver reads only in one piece.
  void sendInOnePiece(ByteView message);
  const std::optional<std::string>& refusal() const { return refusal_; }
  Patient& patient() const { return patient_; }
  /// The next number of a fixed pseudo-random sequence, evenly spread over 32 bits.
  std::uint32_t random() { return random_.next(); }

 private:
  void noteBeginning();
  void put(ByteView message, bool inOnePiece);
  /// The message as faults leave it.
  Bytes afterFaults(ByteView message);

  std::string model_;
  std::uint64_t baudRate_;
  Patient& patient_;
  std::vector<Message> output_;
  bool silent_ = false;
  bool noisy_ = false;
  bool dropAByte_ = false;
  std::optional<std::string> refusal_;
  Duration age_{};
  History history_;
  Random random_{2463534242U};
};

}  // namespace tarsil::simulators
