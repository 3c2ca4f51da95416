#include "tarsil/platform/UserFolders.hpp"

#include <utility>

#include "tarsil/platform/SystemPlatform.hpp"

namespace tarsil {
namespace {

// Null: the system's.
std::shared_ptr<UserFolders>& replacement() {
  static std::shared_ptr<UserFolders> folders;
  return folders;
}

}  // namespace

std::shared_ptr<UserFolders> UserFolders::shared() {
  return replacement() ? replacement() : systemUserFolders();
}

std::shared_ptr<UserFolders> UserFolders::exchangeShared(std::shared_ptr<UserFolders> folders) {
  return std::exchange(replacement(), std::move(folders));
}

}  // namespace tarsil
