#include "tarsil/platform/linux/udevScan.hpp"

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

#include "tarsil/platform/detail/serialDeviceAt.hpp"

namespace tarsil {
namespace {

// Most terminals hang on no device; to see that in their links is cheaper by far than to read of each.
bool isVirtual(const std::filesystem::path& terminal) {
  std::error_code notALink;
  return std::filesystem::read_symlink(terminal, notALink).string().find("/devices/virtual/tty/") !=
         std::string::npos;
}

std::string attribute(udev_device* device, const char* name) {
  const char* value = udev_device_get_sysattr_value(device, name);
  return value != nullptr ? value : "";
}

// A terminal goes before what it hangs on: while it is there, what was read of both is true.
bool isStillThere(udev_device* terminal) {
  std::error_code failed;
  return std::filesystem::exists(udev_device_get_syspath(terminal), failed);
}

// Virtual consoles and pseudo-terminals hang on no device. The kernel also makes terminals for UARTs that may
// be added some day; their type is 0, and opening one to see would succeed.
bool isSerialPort(udev_device* terminal) {
  return udev_device_get_devnode(terminal) != nullptr && udev_device_get_parent(terminal) != nullptr &&
         attribute(terminal, "type") != "0";
}

std::optional<UsbIdentity> usbIdentityOf(udev_device* terminal) {
  udev_device* adapter = udev_device_get_parent_with_subsystem_devtype(terminal, "usb", "usb_device");
  if (adapter == nullptr) return std::nullopt;
  return UsbIdentity{.vendorId = attribute(adapter, "idVendor"),
                     .productId = attribute(adapter, "idProduct"),
                     .serialNumber = attribute(adapter, "serial"),
                     .manufacturer = attribute(adapter, "manufacturer"),
                     .product = attribute(adapter, "product")};
}

std::optional<std::string> linkThatUdevMade(udev_device* terminal, std::string_view folder) {
  udev_list_entry* link = nullptr;
  udev_list_entry_foreach(link, udev_device_get_devlinks_list_entry(terminal)) {
    const std::string_view path = udev_list_entry_get_name(link);
    if (path.starts_with(folder)) return std::string(path);
  }
  return std::nullopt;
}

// Without the daemon's database, links may still stand in /dev: in a container that shares its host's.
std::optional<std::string> linkInFolder(const std::filesystem::path& folder, const std::string& target) {
  namespace fs = std::filesystem;
  std::error_code failed;
  for (fs::directory_iterator link(folder, failed); !failed && link != fs::directory_iterator();
       link.increment(failed)) {
    std::error_code notALink;
    const fs::path aim = fs::read_symlink(link->path(), notALink);
    if (!notALink && (folder / aim).lexically_normal() == target) return link->path().string();
  }
  return std::nullopt;
}

// Adapters without a serial number of their own share one name by identity, so that it could lead to another
// machine after a restart; these go by the socket that they are plugged into.
std::optional<std::string> stablePathOf(udev_device* terminal, const SerialDevice& device) {
  const bool isUnique = device.usb && !device.usb->serialNumber.empty();
  const char* folder = isUnique ? "/dev/serial/by-id/" : "/dev/serial/by-path/";
  if (auto link = linkThatUdevMade(terminal, folder)) return link;
  return linkInFolder(folder, *device.calloutPath);
}

constexpr std::string_view digits = "0123456789";

// Takes the digits that `text` begins with, without zeros in front.
std::string_view takeNumber(std::string_view& text) {
  std::string_view number = text.substr(0, text.find_first_not_of(digits));
  text.remove_prefix(number.size());
  number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
  return number;
}

bool beginsWithDigit(std::string_view text) {
  return !text.empty() && digits.find(text.front()) != std::string_view::npos;
}

}  // namespace

std::optional<FoundDevice> serialPortOf(udev_device* terminal) {
  if (!isSerialPort(terminal)) return std::nullopt;
  SerialDevice device =
      detail::serialDeviceAt(udev_device_get_devnode(terminal), udev_device_get_sysname(terminal));
  device.usb = usbIdentityOf(terminal);
  device.stablePath = stablePathOf(terminal, device);
  // Otherwise an adapter that is pulled out meanwhile would be told as another one, which nobody plugged in.
  if (!isStillThere(terminal)) return std::nullopt;
  return FoundDevice{udev_device_get_syspath(terminal), std::make_shared<SerialDevice>(std::move(device))};
}

std::vector<FoundDevice> scanSerialPorts(udev* context) {
  namespace fs = std::filesystem;
  std::vector<FoundDevice> ports;
  std::error_code failed;
  for (fs::directory_iterator entry("/sys/class/tty", failed); !failed && entry != fs::directory_iterator();
       entry.increment(failed)) {
    if (isVirtual(entry->path())) continue;
    const std::string name = entry->path().filename();
    const UdevDevice terminal(udev_device_new_from_subsystem_sysname(context, "tty", name.c_str()));
    // Null for one that vanished meanwhile.
    if (!terminal) continue;
    if (auto port = serialPortOf(terminal.get())) ports.push_back(*std::move(port));
  }
  std::sort(ports.begin(), ports.end(), [](const FoundDevice& left, const FoundDevice& right) {
    return comesBefore(*left.device->terminalName, *right.device->terminalName);
  });
  return ports;
}

bool comesBefore(std::string_view left, std::string_view right) {
  const std::string_view wholeLeft = left;
  const std::string_view wholeRight = right;
  while (!left.empty() && !right.empty()) {
    if (beginsWithDigit(left) && beginsWithDigit(right)) {
      const std::string_view leftNumber = takeNumber(left);
      const std::string_view rightNumber = takeNumber(right);
      // As text, so that no number is too large.
      if (leftNumber.size() != rightNumber.size()) return leftNumber.size() < rightNumber.size();
      if (leftNumber != rightNumber) return leftNumber < rightNumber;
      continue;
    }
    if (left.front() != right.front()) return left.front() < right.front();
    left.remove_prefix(1);
    right.remove_prefix(1);
  }
  if (left.empty() != right.empty()) return left.empty();
  // Equal but for zeros in front.
  return wholeLeft < wholeRight;
}

}  // namespace tarsil
