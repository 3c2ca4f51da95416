#include "tarsil/platform/linux/LinuxUserFolders.hpp"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "tarsil/platform/SystemPlatform.hpp"

namespace tarsil {
namespace {

// getpwuid_r() says ERANGE while the buffer is too small; no entry of a sane system needs more than this.
constexpr std::size_t largestEntry = 65536;

std::string homeFromPasswordDatabase() {
  std::vector<char> buffer(largestEntry);
  passwd entry{};
  passwd* found = nullptr;
  getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
  return found != nullptr && found->pw_dir != nullptr ? found->pw_dir : "";
}

}  // namespace

std::string LinuxUserFolders::home() {
  // A host sets up its environment before it starts threads.
  const char* variable = std::getenv("HOME");  // NOLINT(concurrency-mt-unsafe)
  const bool isSet = variable != nullptr && *variable != '\0';
  std::string path = isSet ? variable : homeFromPasswordDatabase();
  while (path.ends_with('/')) path.pop_back();
  return path;
}

std::string LinuxUserFolders::documents() {
  return home() + "/Documents";
}

std::shared_ptr<UserFolders> systemUserFolders() {
  static const auto folders = std::make_shared<LinuxUserFolders>();
  return folders;
}

}  // namespace tarsil
