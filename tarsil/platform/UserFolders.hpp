#pragma once

#include <memory>
#include <string>

namespace tarsil {

/// Where the user's files lie. Any thread.
class UserFolders {
 public:
  virtual ~UserFolders() = default;

  /// The user's home directory, without a slash at its end.
  virtual std::string home() = 0;
  /// The user's documents directory, without a slash at its end.
  virtual std::string documents() = 0;

  /// The system's folders, unless a program put others in their place.
  static std::shared_ptr<UserFolders> shared();
  /// Puts others in their place (null: the system's) and hands back the old ones (null: the system's). Call
  /// it while no other thread runs library code.
  static std::shared_ptr<UserFolders> exchangeShared(std::shared_ptr<UserFolders> folders);
};

}  // namespace tarsil
