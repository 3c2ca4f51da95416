#pragma once

#include "tarsil/core/KivStressDevice.hpp"

namespace tarsil {

/// The ergometer entry for a bicycle that the software does not drive: every operation is the base's no-op.
class KivBicycle final : public KivStressDevice {
 public:
  using KivStressDevice::KivStressDevice;
};

}  // namespace tarsil
