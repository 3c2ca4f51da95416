#include "tools/tarsil/ports/PortPrinter.hpp"

#include <fmt/format.h>

#include "tools/tarsil/ports/rightsAdvice.hpp"

namespace tarsil::cli {
namespace {

using OrderedJson = nlohmann::ordered_json;

OrderedJson orNull(const std::optional<std::string>& text) {
  return text ? OrderedJson(*text) : OrderedJson();
}

std::string orDash(const std::optional<std::string>& text) {
  return text && !text->empty() ? *text : "-";
}

/// None for the path that the device does not have.
std::optional<std::string> obstacle(const SerialDevice& device) {
  return device.calloutPath ? whyNotOpenable(*device.calloutPath) : std::nullopt;
}

OrderedJson asJson(const SerialDevice& device) {
  OrderedJson usb;
  if (device.usb) {
    usb = {{"vendorId", device.usb->vendorId},
           {"productId", device.usb->productId},
           {"serialNumber", device.usb->serialNumber},
           {"manufacturer", device.usb->manufacturer},
           {"product", device.usb->product}};
  }
  return {{"name", orNull(device.terminalName)},
          {"path", orNull(device.calloutPath)},
          {"stablePath", orNull(device.stablePath)},
          {"usb", usb},
          {"obstacle", orNull(obstacle(device))}};
}

/// Lines of at most 80 columns, but for paths, which are of no use cut.
constexpr auto* row = "{:<14} {:<9} {:<38.38} {:.16}";
constexpr auto* pathRow = "\n{:<14} {}";

std::string adapterText(const UsbIdentity& usb) {
  const std::string text = usb.manufacturer + (usb.manufacturer.empty() ? "" : " ") + usb.product;
  return text.empty() ? "-" : text;
}

std::string asText(const SerialDevice& device) {
  const auto usb = device.usb.value_or(UsbIdentity{});
  const std::string ids = device.usb ? usb.vendorId + ":" + usb.productId : "-";
  std::string text = fmt::format(fmt::runtime(row), orDash(device.terminalName), ids, adapterText(usb),
                                 orDash(usb.serialNumber));
  for (const auto& path : {device.calloutPath, device.stablePath}) {
    if (path) text += fmt::format(fmt::runtime(pathRow), "", *path);
  }
  return text;
}

}  // namespace

void PortPrinter::list(const SerialDeviceRegistry::Devices& devices) const {
  if (style_ == Style::json) {
    auto list = OrderedJson::array();
    for (const auto& device : devices) list.push_back(asJson(*device));
    out_ << list.dump(2) << '\n' << std::flush;
    return;
  }
  if (devices.empty()) {
    out_ << "no serial ports\n" << std::flush;
    return;
  }
  out_ << fmt::format(fmt::runtime(row), "PORT", "USB", "ADAPTER, AND PATHS BELOW", "SERIAL NUMBER") << '\n';
  for (const auto& device : devices) out_ << asText(*device) << '\n';
  for (const auto& device : devices) {
    if (const auto why = obstacle(*device)) out_ << *why << '\n';
  }
  out_ << std::flush;
}

void PortPrinter::arrived(const SerialDeviceRegistry::Devices& devices) const {
  news("+ ", "arrived", devices);
}

void PortPrinter::removed(const SerialDeviceRegistry::Devices& devices) const {
  news("- ", "removed", devices);
}

void PortPrinter::news(const char* sign, const char* event,
                       const SerialDeviceRegistry::Devices& devices) const {
  for (const auto& device : devices) {
    if (style_ == Style::json) {
      OrderedJson line{{"event", event}};
      line.update(asJson(*device));
      out_ << line.dump() << '\n';
    } else {
      out_ << sign << asText(*device) << '\n';
    }
  }
  out_ << std::flush;
}

}  // namespace tarsil::cli
