#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// A BlueZ that does what the test says, on the bus of DBUS_SYSTEM_BUS_ADDRESS. It lives on one queue, where
/// all of it is called: the main one, like what is under test, so that a call that waited for its answer
/// there would wait for ever; or a serial one, so that it goes its own way.
class FakeBluez {
 public:
  /// What a device has when it appears.
  struct Device {
    std::string address = "C0:11:22:33:44:55";
    std::optional<std::string> name;
    std::optional<std::int16_t> RSSI;
    bool servicesResolved = false;
    bool connected = false;
  };

  enum class Objects { handedOut, withheld };

  /// One that withholds its objects answers the question for them with an error.
  explicit FakeBluez(Objects objects = Objects::handedOut,
                     const DispatchQueue& queue = DispatchQueue::main());
  ~FakeBluez();
  FakeBluez(const FakeBluez&) = delete;
  FakeBluez& operator=(const FakeBluez&) = delete;

  /// From now on; nothing is announced.
  void handOutObjects();

  /// "hci0"; hands back its path.
  std::string addAdapter(const std::string& name, bool powered);
  std::string addDevice(const std::string& adapter, const Device& device);
  std::string addService(const std::string& device, const std::string& name, const std::string& UUID);
  std::string addCharacteristic(const std::string& service, const std::string& name, const std::string& UUID);
  bool has(const std::string& path) const { return objects_.contains(path); }
  /// Removes the object and those below it.
  void remove(const std::string& path);
  /// One of the object's interfaces goes.
  void removeInterface(const std::string& path, const std::string& interface);

  void setPowered(const std::string& adapter, bool powered);
  /// A device's properties "Connected" and "ServicesResolved".
  void setFlag(const std::string& device, const std::string& property, bool value);
  /// Announces whatever the test likes.
  void announce(const std::string& path, const std::string& interface,
                const std::map<std::string, sdbus::Variant>& changed,
                const std::vector<std::string>& invalidated = {});
  void notify(const std::string& characteristic, const Bytes& value);
  /// Says why a device's connection ends.
  void tellReason(const std::string& device, const std::string& name, const std::string& message);

  /// The next calls of this method fail so; after that they succeed.
  void failNext(const std::string& method, const std::vector<std::string>& errors);
  /// Calls of this method stay unanswered until `answer`.
  void hold(const std::string& method) { held_.try_emplace(method); }
  /// Nothing fails and nothing is held from now on; what was held is answered.
  void relent();
  /// Answers the calls that were held, with an error or none; the method is not held any more.
  void answer(const std::string& method, const std::optional<std::string>& error = std::nullopt);

  /// "StartDiscovery /org/bluez/hci0"; the discovery filter's properties follow its call in the order of
  /// their names.
  std::vector<std::string> takeCalls();
  std::size_t count(const std::string& method) const;

 private:
  std::unique_ptr<sdbus::IObject> object(const std::string& path) {
    return sdbus::createObject(*connection_, path);
  }
  void publish(const std::string& path, std::unique_ptr<sdbus::IObject> object);
  void implement(sdbus::IObject& object, const std::string& interface, const std::string& method);
  void called(const std::string& method, const std::string& path, sdbus::Result<>&& result);
  void process();

  std::shared_ptr<sdbus::IConnection> connection_;
  bool handsOutObjects_ = false;
  std::shared_ptr<DispatchSource> source_;
  std::map<std::string, std::unique_ptr<sdbus::IObject>> objects_;
  std::map<std::string, bool> powered_;
  std::map<std::string, Device> devices_;
  std::map<std::string, std::deque<std::string>> failures_;
  std::map<std::string, std::vector<sdbus::Result<>>> held_;
  std::vector<std::string> calls_;
};

}  // namespace tarsil
