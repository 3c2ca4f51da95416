#pragma once

#include <cstdlib>

namespace tarsil {

/// What must hold for every input; the fuzzer keeps an input for which it does not.
inline void expect(bool holds) {
  if (!holds) std::abort();
}

}  // namespace tarsil
