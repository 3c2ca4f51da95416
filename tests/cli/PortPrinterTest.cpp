#include "tools/tarsil/ports/PortPrinter.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tests/cli-report/ScratchFolder.hpp"

namespace tarsil::cli {
namespace {

using Json = nlohmann::json;
using testing::HasSubstr;

std::shared_ptr<const SerialDevice> adapter() {
  auto device = std::make_shared<SerialDevice>();
  device->terminalName = "ttyUSB7";
  device->calloutPath = "/nowhere/ttyUSB7";
  device->stablePath = "/dev/serial/by-id/usb-FTDI";
  device->usb = UsbIdentity{.vendorId = "0403",
                            .productId = "6001",
                            .serialNumber = "A9",
                            .manufacturer = "FTDI",
                            .product = "USB UART"};
  return device;
}

std::shared_ptr<const SerialDevice> pseudoTerminal() {
  auto device = std::make_shared<SerialDevice>();
  device->terminalName = "simulated";
  device->calloutPath = "/dev/ptmx";
  return device;
}

class PortPrinterTest : public testing::Test {
 protected:
  std::ostringstream out;
  PortPrinter text{out, PortPrinter::Style::text};
  PortPrinter json{out, PortPrinter::Style::json};
};

TEST_F(PortPrinterTest, SaysThatThereIsNoPort) {
  text.list({});
  EXPECT_EQ(out.str(), "no serial ports\n");
}

TEST_F(PortPrinterTest, ListsWhatAnAdapterSaysOfItself) {
  text.list({adapter(), pseudoTerminal()});
  EXPECT_EQ(out.str().substr(0, out.str().find("\ncannot")),
            "PORT           USB       ADAPTER, AND PATHS BELOW               SERIAL NUMBER\n"
            "ttyUSB7        0403:6001 FTDI USB UART                          A9\n"
            "               /nowhere/ttyUSB7\n"
            "               /dev/serial/by-id/usb-FTDI\n"
            "simulated      -         -                                      -\n"
            "               /dev/ptmx");
}

TEST_F(PortPrinterTest, FitsIntoEightyColumns) {
  auto talkative = std::make_shared<SerialDevice>(*adapter());
  talkative->usb->manufacturer = std::string(60, 'm');
  talkative->usb->serialNumber = std::string(60, '9');
  text.list({talkative});
  for (const std::string& line : linesOf(out.str())) EXPECT_LE(line.size(), 80U) << line;
}

TEST_F(PortPrinterTest, SaysWhyAPortCannotBeOpened) {
  text.list({adapter()});
  EXPECT_THAT(out.str(), HasSubstr("\ncannot open /nowhere/ttyUSB7: No such file or directory\n"));
}

TEST_F(PortPrinterTest, ListsAsJson) {
  json.list({adapter(), pseudoTerminal()});
  EXPECT_EQ(Json::parse(out.str()), Json::parse(R"([
    {"name":"ttyUSB7","path":"/nowhere/ttyUSB7","stablePath":"/dev/serial/by-id/usb-FTDI",
     "usb":{"vendorId":"0403","productId":"6001","serialNumber":"A9","manufacturer":"FTDI","product":"USB UART"},
     "obstacle":"cannot open /nowhere/ttyUSB7: No such file or directory"},
    {"name":"simulated","path":"/dev/ptmx","stablePath":null,"usb":null,"obstacle":null}])"));
}

TEST_F(PortPrinterTest, PrintsArrivalsAndRemovals) {
  text.arrived({adapter()});
  EXPECT_THAT(out.str(), testing::StartsWith("+ ttyUSB7 "));
  out.str("");
  text.removed({adapter()});
  EXPECT_THAT(out.str(), testing::StartsWith("- ttyUSB7 "));
}

TEST_F(PortPrinterTest, PrintsNewsAsJsonLines) {
  json.arrived({pseudoTerminal()});
  json.removed({pseudoTerminal()});
  std::istringstream lines(out.str());
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(Json::parse(line)["event"], "arrived");
  EXPECT_EQ(Json::parse(line)["name"], "simulated");
  std::getline(lines, line);
  EXPECT_EQ(Json::parse(line)["event"], "removed");
}

}  // namespace
}  // namespace tarsil::cli
