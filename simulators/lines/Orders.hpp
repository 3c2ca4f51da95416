#pragma once

#include <functional>
#include <memory>
#include <string>

#include "simulators/lines/PseudoTerminalEnd.hpp"
#include "tarsil/runtime/DispatchSource.hpp"

namespace tarsil::simulators {

/// Orders to a cable, one a line from a descriptor (standard input, say): "disconnect", "connect", "mute
/// WAY", "unmute WAY", "count", and for one byte of the next message "lose WAY", "double WAY", "change WAY",
/// "add WAY". WAY is "replies", "commands" or "both". What is behind the cable may obey others.
///
/// Standard output gets a line with the path of the new terminal for "connect", and one for "count"; an order
/// that nobody understands gets a line on standard error. The end of the orders, or "quit", stops the main
/// run loop.
class Orders {
 public:
  /// False for an order that it does not understand.
  using Obey = std::function<bool(const std::string& order, const std::string& argument)>;

  /// The descriptor must not block its writer for ever and stays the caller's; `hostEnd` must outlive this
  /// object.
  Orders(int descriptor, PseudoTerminalEnd& hostEnd, Obey others = nullptr);
  ~Orders();
  Orders(const Orders&) = delete;
  Orders& operator=(const Orders&) = delete;

 private:
  void read();
  void obeyLine(const std::string& line);
  bool obey(const std::string& order, const std::string& argument);

  int descriptor_;
  PseudoTerminalEnd& hostEnd_;
  const Obey others_;
  std::string pending_;
  std::shared_ptr<DispatchSource> source_;
};

}  // namespace tarsil::simulators
