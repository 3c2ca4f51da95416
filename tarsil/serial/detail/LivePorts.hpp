#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "tarsil/serial/ORSSerialPort.hpp"

namespace tarsil::detail {

/// Every port object alive, in the order of their creation, without keeping any alive. Any thread.
class LivePorts {
 public:
  static LivePorts& shared();

  void add(const std::shared_ptr<ORSSerialPort>& port);
  void remove(const ORSSerialPort* port);
  std::vector<std::shared_ptr<ORSSerialPort>> all() const;

 private:
  struct Entry {
    const ORSSerialPort* port;
    std::weak_ptr<ORSSerialPort> reference;
  };

  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
};

}  // namespace tarsil::detail
