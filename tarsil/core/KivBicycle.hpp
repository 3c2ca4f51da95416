#pragma once

#include <memory>

#include "tarsil/core/KivStressDevice.hpp"
#include "tarsil/core/ReplyFraming.hpp"

namespace tarsil {

/// The ergometer entry for a bicycle that the software does not drive: every operation is the base's no-op.
class KivBicycle final : public KivStressDevice {
 public:
  using KivStressDevice::KivStressDevice;

  /// What the machine answers is counted and never read. Any thread.
  static std::unique_ptr<ReplyFraming> makeFraming() { return makeUnreadFraming(); }
};

}  // namespace tarsil
