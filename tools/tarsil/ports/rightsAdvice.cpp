#include "tools/tarsil/ports/rightsAdvice.hpp"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace tarsil::cli {
namespace {

constexpr std::size_t longestEntry = 16384;

std::string groupName(gid_t id) {
  group entry{};
  group* found = nullptr;
  std::array<char, longestEntry> buffer{};
  getgrgid_r(id, &entry, buffer.data(), buffer.size(), &found);
  return found != nullptr ? found->gr_name : std::to_string(id);
}

std::string userName(uid_t id) {
  passwd entry{};
  passwd* found = nullptr;
  std::array<char, longestEntry> buffer{};
  getpwuid_r(id, &entry, buffer.data(), buffer.size(), &found);
  return found != nullptr ? found->pw_name : std::to_string(id);
}

}  // namespace

std::string rightsAdvice(const struct stat& file) {
  constexpr mode_t forGroup = S_IRGRP | S_IWGRP;
  if ((file.st_mode & forGroup) != forGroup) return "only " + userName(file.st_uid) + " may open it";
  return fmt::format("join the group {0} (sudo usermod -aG {0} {1}) and log in again", groupName(file.st_gid),
                     userName(geteuid()));
}

std::optional<std::string> whyNotOpenable(const std::string& path) {
  if (access(path.c_str(), R_OK | W_OK) == 0) return std::nullopt;
  const int error = errno;
  struct stat file {};
  if (error == EACCES && stat(path.c_str(), &file) == 0) {
    return "no right to open " + path + ": " + rightsAdvice(file);
  }
  return "cannot open " + path + ": " + std::generic_category().message(error);
}

}  // namespace tarsil::cli
