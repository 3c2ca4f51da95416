#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tarsil/core/DeviceModel.hpp"
#include "tarsil/core/KivStressDevice.hpp"
#include "tarsil/core/KivStressPortDelegate.hpp"
#include "tarsil/core/ReplyFraming.hpp"
#include "tarsil/guard/Event.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil::detail {

/// A model's driver that cannot hurt. One driver object sends; another one reads, and only the whole, sound
/// replies that the line's bytes contain. Either is thrown away and replaced where it would stop the process
/// or hang. What is reported is what the reply at hand says. Main thread.
class GuardedDriver {
 public:
  struct Listener {
    std::function<void(Event::What)> event;
    /// Speed and grade as the driver hands them over.
    std::function<void(float speed, float grade)> treadmillLoad;
    std::function<void(float power)> power;
    std::function<void(float rate)> pedalRate;
    std::function<void(Pressure, std::int64_t status)> pressure;
    std::function<void(float saturation)> saturation;
    std::function<void(const DeviceRefused&, bool atMachine)> refusal;
    std::function<void()> acknowledged;
  };

  /// Of a model with a line.
  GuardedDriver(const DeviceModel& model, Listener listener);
  ~GuardedDriver();

  /// Sends over this port from now on, with a new driver; null: over none.
  void bind(std::shared_ptr<ORSSerialPort> port);
  /// The line is new, or is to be taken for new: new drivers, and the rest of a reply is forgotten.
  void renew();
  /// What the line has delivered.
  void receive(const Bytes& bytes);
  /// Lets the driver send. A driver that stops within is replaced.
  void command(const std::function<void(KivStressDevice&)>& call);

 private:
  class Host;

  void read(const ReplyFraming::Reply& reply);
  void replace(const std::string& reason);
  void retire();
  std::shared_ptr<KivStressDevice> makeDriver() const;
  void tellDiscarded();

  const std::function<std::shared_ptr<KivStressDevice>()> make_;
  const Listener listener_;
  const std::shared_ptr<Host> host_;
  const std::unique_ptr<ReplyFraming> framing_;
  std::shared_ptr<KivStressDevice> sender_;
  std::shared_ptr<KivStressDevice> reader_;
  std::shared_ptr<ORSSerialPort> port_;
  /// As last told.
  Discarded discarded_;
};

}  // namespace tarsil::detail
