// Prints, for each notification that the simulated oximeter sends, how many nanoseconds passed between its
// sending and this line of code: the least that a program can do to hear it over the bus. Ends with its
// input.

#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "simulators/radio/SimulatedOximeter.hpp"

int main() {
  const auto connection = sdbus::createSystemBusConnection();
  std::vector<std::string> lines;
  const auto slot = connection->addMatch(
      "type='signal',sender='org.bluez',interface='org.freedesktop.DBus.Properties',member='"
      "PropertiesChanged'",
      [&](sdbus::Message& signal) {
        std::string interface;
        std::map<std::string, sdbus::Variant> properties;
        signal >> interface >> properties;
        const auto connected = properties.find("Connected");
        if (connected != properties.end() && !connected->second.get<bool>())
          lines.emplace_back("disconnected");
        const auto value = properties.find("Value");
        if (interface != "org.bluez.GattCharacteristic1" || value == properties.end()) return;
        const auto frame = value->second.get<std::vector<std::uint8_t>>();
        const auto sent = tarsil::simulators::SimulatedOximeter::timeIn(frame);
        const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
        lines.push_back(std::to_string(frame.at(8)) + " " +
                        std::to_string(static_cast<std::uint64_t>(now) - sent));
      });
  std::puts("listening");
  std::fflush(stdout);
  for (;;) {
    while (connection->processPendingRequest()) {
    }
    const auto bus = connection->getEventLoopPollData();
    std::array<pollfd, 2> descriptors{pollfd{bus.fd, bus.events, 0}, pollfd{STDIN_FILENO, POLLIN, 0}};
    poll(descriptors.data(), descriptors.size(), bus.getPollTimeout());
    if (descriptors[1].revents != 0) break;
  }
  for (const auto& line : lines) std::puts(line.c_str());
  std::puts("end");
  return 0;
}
