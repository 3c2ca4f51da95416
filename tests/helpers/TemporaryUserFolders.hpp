#pragma once

#include <filesystem>
#include <string>

#include "tarsil/platform/UserFolders.hpp"
#include "tarsil/support/ScopedOverride.hpp"

namespace tarsil {

/// A home of the test's own, empty at first: while it exists the library finds the user's folders there. It
/// goes with everything in it.
class TemporaryUserFolders {
 public:
  TemporaryUserFolders();
  ~TemporaryUserFolders();
  TemporaryUserFolders(const TemporaryUserFolders&) = delete;
  TemporaryUserFolders& operator=(const TemporaryUserFolders&) = delete;

  const std::filesystem::path& home() const { return home_; }
  /// "Documents" in the home; nothing creates it but the library.
  std::filesystem::path documents() const { return home_ / "Documents"; }
  /// Where the traffic log goes.
  std::filesystem::path logs() const { return documents() / "DeviceFile"; }

 private:
  std::filesystem::path home_;
  ScopedOverride<UserFolders> folders_;
};

/// The bytes of a file, none when it cannot be read.
std::string contentsOf(const std::filesystem::path& file);

}  // namespace tarsil
