#pragma once

#include "tarsil/core/KivStressPortDelegate.hpp"
#include "tarsil/serial/ORSSerialPortDelegate.hpp"

#import <Tarsil/KivStressPortDelegate.h>
#import <Tarsil/ORSSerialPortDelegate.h>

// Delegates of one language as delegates of the other. Which methods one answers is asked before every call.
namespace tarsil::objc {

/// Holds the host's delegate; none for nil.
KivStressPortDelegateRef hostDelegate(id<KivStressPortDelegate> delegate);
/// nil when there is none, and when it is a C++ one.
id<KivStressPortDelegate> hostDelegate(const KivStressPortDelegateRef& delegate);

/// Refers to the delegate weakly; whoever sets it keeps what this returns. Null for nil.
class PortDelegate;
std::shared_ptr<PortDelegate> portDelegate(id<ORSSerialPortDelegate> delegate);
ORSSerialPortDelegateRef reference(const std::shared_ptr<PortDelegate>& delegate);
/// The host's own delegate, or the twin of the driver or manager; nil when there is none, or no longer.
id<ORSSerialPortDelegate> portDelegate(const ORSSerialPortDelegateRef& delegate);

}  // namespace tarsil::objc
