#pragma once

namespace tarsil {

/// How far one quantity of the load may go, and how fast.
struct Limit {
  /// A load above it is refused.
  float highest;
  /// The most by which one command may change it; a larger change is walked in such steps.
  float step;
  /// The most by which it may change within a second; a machine that wakes late may make it 950 ms.
  float perSecond;
};

/// What a host allows its patient. A limit beyond what the model's frames carry adds nothing.
struct Limits {
  /// km/h
  Limit speed{.highest = 16, .step = 1, .perSecond = 1};
  /// percent
  Limit grade{.highest = 25, .step = 2, .perSecond = 2};
  /// watts
  Limit power{.highest = 400, .step = 25, .perSecond = 25};
};

}  // namespace tarsil
