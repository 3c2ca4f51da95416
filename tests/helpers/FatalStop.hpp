#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

namespace tarsil {

/// Thrown in place of stopping the process while `fatalReason` runs.
struct FatalStop : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Runs `work` on this thread; the reason for which the process would have stopped in it, none when it went
/// through:
///
///     EXPECT_EQ(fatalReason([&] { treadmill->setLoad(NAN, 0.0F); }), "...");
std::optional<std::string> fatalReason(const std::function<void()>& work);

}  // namespace tarsil
