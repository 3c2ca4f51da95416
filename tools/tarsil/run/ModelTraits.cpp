#include "tools/tarsil/run/ModelTraits.hpp"

#include <array>

namespace tarsil::cli {
namespace {

/// Tenths of km/h of a lower speed have one hexadecimal digit, which shifts all bytes behind it: a command
/// that is lost, or one of another speed.
constexpr float twoHexDigits = 1.6F;

}  // namespace

ModelTraits traitsOf(const std::string& model, StressDeviceType kind) {
  using enum StressDeviceType;
  static const std::array known{
      ModelTraits{.model = "LodeTreadmill",
                  .kind = Treadmill,
                  .reportsLoad = true,
                  .reportsFollow = true,
                  .speedUnit = 10,
                  .gradeUnit = 10},
      ModelTraits{.model = "LodeOEMTreadmill",
                  .kind = Treadmill,
                  .reportsLoad = true,
                  .speedUnit = 10,
                  .slowest = twoHexDigits},
      ModelTraits{.model = "TM-400V2", .kind = Treadmill, .slowest = twoHexDigits},
      ModelTraits{.model = "TrackMaster", .kind = Treadmill, .reportsLoad = true, .reportsFollow = true},
      ModelTraits{
          .model = "ErgolineK2.4P10", .kind = Ergometer, .reportsLoad = true, .answersPressure = true},
      ModelTraits{.model = "ErgosanaK4.8P10",
                  .kind = Ergometer,
                  .reportsLoad = true,
                  .reportsFollow = true,
                  .answersPressure = true},
  };
  for (const ModelTraits& traits : known) {
    if (traits.model == model) return traits;
  }
  return {.model = model, .kind = kind};
}

}  // namespace tarsil::cli
