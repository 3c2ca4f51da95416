#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tarsil/platform/SerialDevice.hpp"
#include "tarsil/platform/VirtualDeviceRegistry.hpp"
#include "tarsil/support/ScopedOverride.hpp"
#include "tools/tarsil/replay/Subject.hpp"

namespace tarsil::cli {

/// The serial devices of a station, as a script names them. What is written to one becomes an event with its
/// name. While this object exists, ports are looked up here; when it goes, no device is left.
class StationPorts {
 public:
  explicit StationPorts(ReplayWorld world);
  ~StationPorts();
  StationPorts(const StationPorts&) = delete;
  StationPorts& operator=(const StationPorts&) = delete;

  /// From now on these devices are present, in this order. A name that comes twice stands for two devices.
  /// A port that is already bound stays as it is when its device is no longer in the list.
  void set(const std::vector<std::string>& names);

 private:
  using Device = std::shared_ptr<const SerialDevice>;

  /// The `occurrence`-th device of that name; always the same one.
  const Device& device(const std::string& name, std::size_t occurrence);
  void orderPorts(const std::vector<Device>& wanted) const;

  ReplayWorld world_;
  std::shared_ptr<VirtualDeviceRegistry> registry_;
  ScopedOverride<SerialDeviceRegistry> override_;
  std::map<std::pair<std::string, std::size_t>, Device> known_;
};

}  // namespace tarsil::cli
