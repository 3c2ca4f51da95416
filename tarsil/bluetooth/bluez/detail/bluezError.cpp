#include "tarsil/bluetooth/bluez/detail/bluezError.hpp"

#include <map>
#include <string_view>

namespace tarsil::bluez {

using Code = BluetoothError::Code;

bool isInProgress(const std::optional<BusError>& error) {
  return error && error->name == "org.bluez.Error.InProgress";
}

Failure failureOf(const BusError& error) {
  static const std::map<std::string_view, Failure> failures = {
      {"org.bluez.Error.AlreadyConnected", Failure::none},
      {"org.bluez.Error.NotConnected", Failure::passing},
      {"org.bluez.Error.NotAuthorized", Failure::refused},
      {"org.bluez.Error.NotPermitted", Failure::refused},
      {"org.freedesktop.DBus.Error.AccessDenied", Failure::refused},
      {"org.freedesktop.DBus.Error.ServiceUnknown", Failure::noDaemon},
      {"org.freedesktop.DBus.Error.NameHasNoOwner", Failure::noDaemon},
      {"org.bluez.Error.NotSupported", Failure::lasting},
      {"org.bluez.Error.NotAvailable", Failure::lasting},
      {"org.bluez.Error.InvalidArguments", Failure::lasting},
      {"org.bluez.Error.AuthenticationFailed", Failure::lasting},
      {"org.bluez.Error.AuthenticationRejected", Failure::lasting},
  };
  // The system was asked to start BlueZ, and cannot.
  for (const char* prefix : {"org.freedesktop.systemd1.", "org.freedesktop.DBus.Error.Spawn."}) {
    if (error.name.starts_with(prefix)) return Failure::noDaemon;
  }
  const auto found = failures.find(error.name);
  // BlueZ names almost everything that goes wrong in the air "Failed": time-outs, links that break while they
  // are made, a controller that is busy.
  return found == failures.end() ? Failure::passing : found->second;
}

BluetoothError toBluetoothError(const BusError& error) {
  static const std::map<std::string_view, Code> codes = {
      {"org.bluez.Error.NotConnected", Code::notConnected},
      {"org.bluez.Error.NotReady", Code::centralUnavailable},
      {"org.bluez.Error.NotSupported", Code::notSupported},
      {"org.bluez.Error.NotAvailable", Code::notSupported},
      {"org.bluez.Error.AuthenticationFailed", Code::connectionFailed},
      {"org.bluez.Error.AuthenticationRejected", Code::connectionFailed},
      {"org.bluez.Error.NotAuthorized", Code::notPermitted},
      {"org.bluez.Error.NotPermitted", Code::notPermitted},
      {"org.freedesktop.DBus.Error.AccessDenied", Code::notPermitted},
      {"org.freedesktop.DBus.Error.ServiceUnknown", Code::centralUnavailable},
  };
  const auto found = codes.find(error.name);
  return {found == codes.end() ? Code::unknown : found->second, error.name + ": " + error.message};
}

BluetoothError lossFor(const std::optional<std::string>& reasonName, const std::string& reasonText) {
  static const std::map<std::string_view, Code> codes = {
      {"org.bluez.Reason.Timeout", Code::connectionTimeout},
      {"org.bluez.Reason.Remote", Code::peripheralDisconnected},
      {"org.bluez.Reason.Suspend", Code::centralUnavailable},
  };
  if (!reasonName) return {Code::unknown, "the connection ended"};
  const auto found = codes.find(*reasonName);
  return {found == codes.end() ? Code::unknown : found->second, *reasonName + ": " + reasonText};
}

}  // namespace tarsil::bluez
