#pragma once

#include <filesystem>
#include <memory>
#include <string>

typedef struct _UMockdevTestbed UMockdevTestbed;

namespace tarsil {

/// A /sys and a /dev of the test's own, empty at first, in which the test plugs devices.
class Testbed {
 public:
  Testbed();
  ~Testbed();
  Testbed(const Testbed&) = delete;
  Testbed& operator=(const Testbed&) = delete;

  struct Adapter {
    /// The USB port that it sits in.
    std::string socket = "1-1";
    std::string terminalName = "ttyUSB0";
    std::string vendorId = "0403";
    std::string productId = "6001";
    /// Empty: the adapter does not tell.
    std::string serialNumber = "A50285BI";
    std::string manufacturer = "FTDI";
    std::string product = "FT232R USB UART";
    /// What the daemon would have linked, blanks between; empty where no daemon runs.
    std::string links = "";
  };

  /// Puts the adapter there without a word. Returns its folder under /sys.
  std::string plug(const Adapter& adapter);
  /// A terminal without a device. Returns its folder under /sys, as `addUart` does.
  std::string addTerminal(const std::string& folder, const std::string& name,
                          const std::string& uartType = "");
  /// A UART of the device at `parent` (below /sys/devices), of the kernel's number for its type.
  std::string addUart(const std::string& parent, const std::string& name, const std::string& uartType);
  /// The device's folder goes, and what lies in it.
  void unplug(const std::string& systemPath);
  /// The kernel's word of a device: "add", "remove", "change".
  void announce(const std::string& systemPath, const std::string& action);

  /// Where the test's /dev, /sys and /run lie.
  std::filesystem::path root() const;

 private:
  /// Does nothing when there is something in the folder (below /sys) already.
  void add(const std::string& folder, const std::string& description);
  UMockdevTestbed* const testbed_;
};

}  // namespace tarsil
