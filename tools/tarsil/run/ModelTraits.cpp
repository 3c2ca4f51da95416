#include "tools/tarsil/run/ModelTraits.hpp"

#include "tarsil/station/standardCatalogue.hpp"

namespace tarsil::cli {

ModelTraits traitsOf(const std::string& name, StressDeviceType kind) {
  ModelTraits traits{.model = name, .kind = kind};
  const auto model = standardCatalogue().modelNamed(name);
  if (!model || !model->exercise) return traits;
  const ExerciseFacts& facts = *model->exercise;
  traits.reportsLoad = facts.loadReport != LoadReport::none;
  traits.reportsFollow = facts.loadReport == LoadReport::current;
  traits.speedUnit = facts.speedUnit;
  traits.gradeUnit = facts.gradeUnit;
  // A driver that carries 0 refuses itself what is between.
  if (facts.speed.carriesAnything() && !facts.speed.carriesZero()) traits.slowest = facts.speed.lowest();
  traits.answersPressure = facts.answersPressure;
  return traits;
}

}  // namespace tarsil::cli
