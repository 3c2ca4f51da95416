#pragma once

#include "tarsil/platform/UserFolders.hpp"

namespace tarsil {

/// The folders of the user whose process this is: HOME, or the password database where that is not set, and
/// "Documents" in it.
class LinuxUserFolders final : public UserFolders {
 public:
  std::string home() override;
  std::string documents() override;
};

}  // namespace tarsil
