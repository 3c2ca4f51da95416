#import "Tarsil/detail/delegates.h"

#include <array>

#include "tarsil/core/StressECGDeviceManager.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"

#import <Tarsil/ORSSerialPacketDescriptor.h>
#import <Tarsil/ORSSerialPort.h>
#import <Tarsil/ORSSerialRequest.h>
#import <Tarsil/StressECGDeviceManager.h>
#import "Tarsil/detail/convert.h"
#import "Tarsil/detail/deviceTwin.h"
#import "Tarsil/detail/system.h"

namespace tarsil::objc {
namespace {

/// Calls a host's delegate. Main thread.
class HostDelegate final : public KivStressPortDelegate {
 public:
  explicit HostDelegate(id<KivStressPortDelegate> host) : host_([host retain]) {}
  ~HostDelegate() override {
    inPool([this] { [host_ release]; });
  }
  HostDelegate(const HostDelegate&) = delete;
  HostDelegate& operator=(const HostDelegate&) = delete;

  id<KivStressPortDelegate> host() const { return [[host_ retain] autorelease]; }

  bool respondsTo(Selector selector) const {
    static const std::array<SEL, selectorNames.size()> selectors {
      @selector(onReceivedTreadmillLoadWithSpeed:grade:), @selector(onReceivedErgometerPowerWithPower:),
          @selector(onReceivedErgometerRpmWithRpm:), @selector(onReceivedBPWithSysBP:diaBP:status:),
          @selector(onReceivedSpO2WithSpO2:status:), @selector(onStressDevicesListWithDeviceList:),
          @selector(portWasOpened), @selector(portWasRemovedFromSystem), @selector(onErrorWithCode:details:),
          @selector(successfully), @selector(deviceIsReadyWithIsReady:)
    };
    return [host_ respondsToSelector:selectors.at(static_cast<std::size_t>(selector))] != NO;
  }

  void onReceivedTreadmillLoadWithSpeed(float speed, float grade) override {
    inPool([&] { [host_ onReceivedTreadmillLoadWithSpeed:speed grade:grade]; });
  }
  void onReceivedErgometerPowerWithPower(float power) override {
    inPool([&] { [host_ onReceivedErgometerPowerWithPower:power]; });
  }
  void onReceivedErgometerRpmWithRpm(float rpm) override {
    inPool([&] { [host_ onReceivedErgometerRpmWithRpm:rpm]; });
  }
  void onReceivedBPWithSysBP(float sysBP, float diaBP, std::int64_t status) override {
    inPool([&] { [host_ onReceivedBPWithSysBP:sysBP diaBP:diaBP status:status]; });
  }
  void onReceivedSpO2WithSpO2(float SpO2, std::int64_t status) override {
    inPool([&] { [host_ onReceivedSpO2WithSpO2:SpO2 status:status]; });
  }
  void onStressDevicesListWithDeviceList(const std::vector<std::string>& deviceList) override {
    inPool([&] { [host_ onStressDevicesListWithDeviceList:stringsOf(deviceList)]; });
  }
  void portWasOpened() override {
    inPool([&] { [host_ portWasOpened]; });
  }
  void portWasRemovedFromSystem() override {
    inPool([&] { [host_ portWasRemovedFromSystem]; });
  }
  void onErrorWithCode(const std::string& code, const std::string& details) override {
    inPool([&] { [host_ onErrorWithCode:stringOf(code) details:stringOf(details)]; });
  }
  void successfully() override {
    inPool([&] { [host_ successfully]; });
  }
  void deviceIsReadyWithIsReady(bool isReady) override {
    inPool([&] { [host_ deviceIsReadyWithIsReady:truth(isReady)]; });
  }

 private:
  id<KivStressPortDelegate> host_;
};

::ORSSerialPort* twin(ORSSerialPort& port) {
  return twinOf(port.shared_from_this(), [::ORSSerialPort class]);
}

}  // namespace

KivStressPortDelegateRef hostDelegate(id<KivStressPortDelegate> delegate) {
  if (delegate == nil) return nullptr;
  return std::make_shared<HostDelegate>(delegate);
}

id<KivStressPortDelegate> hostDelegate(const KivStressPortDelegateRef& delegate) {
  const auto* const own = dynamic_cast<HostDelegate*>(delegate.get());
  return own != nullptr ? own->host() : nil;
}

/// Calls a port's delegate, as long as it lives. Main thread.
class PortDelegate final : public ORSSerialPortDelegate {
 public:
  explicit PortDelegate(id<ORSSerialPortDelegate> delegate) : delegate_(delegate) {}

  id<ORSSerialPortDelegate> delegate() const { return delegate_.object(); }

  bool respondsTo(Selector selector) const {
    static const std::array<SEL, selectorNames.size()> selectors {
      @selector(serialPortWasRemovedFromSystem:), @selector(serialPort:didReceiveData:),
          @selector(serialPort:didReceivePacket:matchingDescriptor:),
          @selector(serialPort:didReceiveResponse:toRequest:), @selector(serialPort:requestDidTimeout:),
          @selector(serialPort:didEncounterError:), @selector(serialPortWasOpened:),
          @selector(serialPortWasClosed:)
    };
    bool responds = false;
    inPool([&] {
      responds = [delegate() respondsToSelector:selectors.at(static_cast<std::size_t>(selector))] != NO;
    });
    return responds;
  }

  void serialPortWasRemovedFromSystem(ORSSerialPort& port) override {
    inPool([&] { [delegate() serialPortWasRemovedFromSystem:twin(port)]; });
  }
  void serialPortDidReceiveData(ORSSerialPort& port, const Bytes& chunk) override {
    inPool([&] { [delegate() serialPort:twin(port) didReceiveData:dataOf(ByteView(chunk))]; });
  }
  void serialPortDidReceivePacket(ORSSerialPort& port, const Bytes& packet,
                                  const Descriptor& matchingDescriptor) override {
    inPool([&] {
      [delegate() serialPort:twin(port)
            didReceivePacket:dataOf(ByteView(packet))
          matchingDescriptor:twinOf(matchingDescriptor, [::ORSSerialPacketDescriptor class])];
    });
  }
  void serialPortDidReceiveResponse(ORSSerialPort& port, const Bytes& response,
                                    const Request& toRequest) override {
    inPool([&] {
      [delegate() serialPort:twin(port)
          didReceiveResponse:dataOf(ByteView(response))
                   toRequest:twinOf(toRequest, [::ORSSerialRequest class])];
    });
  }
  void serialPortRequestDidTimeout(ORSSerialPort& port, const Request& request) override {
    inPool([&] {
      [delegate() serialPort:twin(port) requestDidTimeout:twinOf(request, [::ORSSerialRequest class])];
    });
  }
  void serialPortDidEncounterError(ORSSerialPort& port, const Error& encountered) override {
    inPool([&] { [delegate() serialPort:twin(port) didEncounterError:errorOf(encountered)]; });
  }
  void serialPortWasOpened(ORSSerialPort& port) override {
    inPool([&] { [delegate() serialPortWasOpened:twin(port)]; });
  }
  void serialPortWasClosed(ORSSerialPort& port) override {
    inPool([&] { [delegate() serialPortWasClosed:twin(port)]; });
  }

 private:
  WeakReference delegate_;
};

std::shared_ptr<PortDelegate> portDelegate(id<ORSSerialPortDelegate> delegate) {
  return delegate == nil ? nullptr : std::make_shared<PortDelegate>(delegate);
}

ORSSerialPortDelegateRef reference(const std::shared_ptr<PortDelegate>& delegate) {
  return delegate;
}

id<ORSSerialPortDelegate> portDelegate(const ORSSerialPortDelegateRef& delegate) {
  const auto alive = delegate.lock();
  if (const auto own = std::dynamic_pointer_cast<PortDelegate>(alive)) return own->delegate();
  if (const auto device = std::dynamic_pointer_cast<KivStressDevice>(alive)) return deviceTwin(device);
  return twinOf(std::dynamic_pointer_cast<StressECGDeviceManager>(alive), [::StressECGDeviceManager class]);
}

}  // namespace tarsil::objc
