#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "tarsil/platform/PortAccess.hpp"

namespace tarsil {
namespace {

namespace fs = std::filesystem;

bool isNumber(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool hasOpen(const fs::path& process, const fs::path& device) {
  std::error_code error;
  for (fs::directory_iterator entry(process / "fd", error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code unreadable;
    if (fs::read_symlink(entry->path(), unreadable) == device) return true;
  }
  return false;
}

std::string nameOf(const fs::path& process) {
  std::string name;
  std::ifstream comm(process / "comm");
  std::getline(comm, name);
  return name;
}

}  // namespace

std::vector<std::string> programsHolding(const std::string& path) {
  std::vector<std::string> programs;
  std::error_code error;
  const fs::path device = fs::canonical(path, error);
  if (error) return programs;
  const std::string own = std::to_string(getpid());
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end; entry.increment(error)) {
    const std::string id = entry->path().filename();
    if (!isNumber(id) || id == own || !hasOpen(entry->path(), device)) continue;
    programs.push_back(nameOf(entry->path()) + " (process " + id + ")");
  }
  return programs;
}

std::string groupOf(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return {};
  constexpr std::size_t enough = 4096;
  std::array<char, enough> buffer{};
  group entry{};
  group* found = nullptr;
  if (getgrgid_r(status.st_gid, &entry, buffer.data(), buffer.size(), &found) != 0 || !found) return {};
  return found->gr_name;
}

}  // namespace tarsil
