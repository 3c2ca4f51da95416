#include "tarsil/bluetooth/bluez/detail/bluezError.hpp"

#include <gtest/gtest.h>

namespace tarsil::bluez {
namespace {

using Code = BluetoothError::Code;

TEST(BluezError, TellsWhatAFailedCallMeans) {
  const std::map<std::string, Failure> expected = {
      {"org.bluez.Error.AlreadyConnected", Failure::none},
      {"org.bluez.Error.NotConnected", Failure::passing},
      {"org.bluez.Error.NotReady", Failure::passing},
      {"org.bluez.Error.InProgress", Failure::passing},
      {"org.bluez.Error.Failed", Failure::passing},
      {"org.freedesktop.DBus.Error.NoReply", Failure::passing},
      {"org.freedesktop.DBus.Error.UnknownObject", Failure::passing},
      {"org.bluez.Error.NotAuthorized", Failure::refused},
      {"org.bluez.Error.NotPermitted", Failure::refused},
      {"org.freedesktop.DBus.Error.AccessDenied", Failure::refused},
      {"org.freedesktop.DBus.Error.ServiceUnknown", Failure::noDaemon},
      {"org.freedesktop.DBus.Error.NameHasNoOwner", Failure::noDaemon},
      {"org.freedesktop.DBus.Error.Spawn.ChildExited", Failure::noDaemon},
      {"org.freedesktop.systemd1.NoSuchUnit", Failure::noDaemon},
      {"org.bluez.Error.NotSupported", Failure::lasting},
      {"org.bluez.Error.NotAvailable", Failure::lasting},
      {"org.bluez.Error.InvalidArguments", Failure::lasting},
      {"org.bluez.Error.AuthenticationFailed", Failure::lasting},
      {"org.bluez.Error.AuthenticationRejected", Failure::lasting},
  };
  for (const auto& [name, failure] : expected) EXPECT_EQ(failureOf({name, ""}), failure) << name;
}

TEST(BluezError, HandsTheSystemsOwnWordsOn) {
  const std::map<std::string, Code> expected = {
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
      {"org.bluez.Error.Failed", Code::unknown},
  };
  for (const auto& [name, code] : expected) {
    EXPECT_EQ(toBluetoothError({name, "why"}), (BluetoothError{code, name + ": why"})) << name;
  }
}

TEST(BluezError, KnowsTheReasonsForTheEndOfAConnection) {
  EXPECT_EQ(lossFor("org.bluez.Reason.Timeout", "why"),
            (BluetoothError{Code::connectionTimeout, "org.bluez.Reason.Timeout: why"}));
  EXPECT_EQ(lossFor("org.bluez.Reason.Remote", "why"),
            (BluetoothError{Code::peripheralDisconnected, "org.bluez.Reason.Remote: why"}));
  EXPECT_EQ(lossFor("org.bluez.Reason.Suspend", "why"),
            (BluetoothError{Code::centralUnavailable, "org.bluez.Reason.Suspend: why"}));
  EXPECT_EQ(lossFor("org.bluez.Reason.Local", "why"),
            (BluetoothError{Code::unknown, "org.bluez.Reason.Local: why"}));
  EXPECT_EQ(lossFor(std::nullopt, ""), (BluetoothError{Code::unknown, "the connection ended"}));
}

}  // namespace
}  // namespace tarsil::bluez
