#include <tarsil/core/StressECGDeviceManager.hpp>
