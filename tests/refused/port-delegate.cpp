#include <tarsil/serial/ORSSerialPort.hpp>

struct Client : tarsil::ORSSerialPortDelegate {};

void handOver(tarsil::ORSSerialPort& port, Client& client) {
  port.setDelegate(&client);
}
