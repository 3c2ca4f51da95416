#pragma once

#include <stdexcept>

namespace tarsil::cli {

/// Thrown on the main thread where the library would stop the process or hold that thread for ever; the text
/// says why.
class LibraryStopped : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace tarsil::cli
