#pragma once

namespace tarsil::objc {

/// From now on, what the shared port manager posts reaches NSNotificationCenter too. Once is enough. Any
/// thread.
void forwardNotifications();

}  // namespace tarsil::objc
