#pragma once

#include <functional>
#include <initializer_list>
#include <memory>

#include "tarsil/serial/ORSSerialPortDelegate.hpp"
#include "tarsil/support/bytes.hpp"
#include "tests/helpers/RecordedCall.hpp"

namespace tarsil {

// The calls that a port's delegate can get, to compare with.
RecordedCall removed();
RecordedCall received(ByteView data);
RecordedCall packet(ByteView bytes, const ORSSerialPortDelegate::Descriptor& descriptor);
RecordedCall response(ByteView bytes, const ORSSerialPortDelegate::Request& request);
RecordedCall timedOut(const ORSSerialPortDelegate::Request& request);
/// A failed system call; `failed(ENXIO)`.
RecordedCall failed(int errorNumber);
RecordedCall opened();
RecordedCall closed();

/// A port's client that writes down what the port tells it, in order:
///
///     RecordingPortDelegate client;
///     port->setDelegate(client);
///     ...
///     EXPECT_THAT(client.calls(), ElementsAre(opened(), received(hex("01 02"))));
///
/// It answers every selector until told otherwise. A call that is not made on the main thread, or an error
/// that is not a POSIX one of the port's path, fails the test. Calls may be asked for on any thread.
class RecordingPortDelegate {
 public:
  using Selector = ORSSerialPortDelegate::Selector;

  RecordingPortDelegate();

  /// The delegate to hand to a port; the port does not keep it alive.
  operator ORSSerialPortDelegateRef() const;

  RecordedCalls calls() const;
  /// The calls so far, which are then forgotten.
  RecordedCalls takeCalls();

  void answerOnly(std::initializer_list<Selector> selectors);
  void answerAllBut(std::initializer_list<Selector> selectors);

  /// Called within each call, after it was written down: a client that acts on what it hears.
  void onCall(std::function<void(ORSSerialPort&, const RecordedCall&)> action);

  /// Lets the delegate die, as a client that was dropped; what it heard stays.
  void drop();

 private:
  class Delegate;
  struct Record;
  std::shared_ptr<Record> record_;
  std::shared_ptr<Delegate> delegate_;
};

}  // namespace tarsil
