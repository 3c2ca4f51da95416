#include "tests/faults/ProcessSize.hpp"

#include <malloc.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

namespace tarsil {
namespace {

namespace fs = std::filesystem;

std::size_t residentBytes() {
  std::size_t size = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::size_t countOf(const fs::path& folder) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

}  // namespace

ProcessSize ProcessSize::now() {
  timespec used{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return {.resident = residentBytes(),
          .heap = mallinfo2().uordblks + mallinfo2().hblkhd,
          .descriptors = countOf("/proc/self/fd") - 1,  // without the one that looks
          .threads = countOf("/proc/self/task"),
          .used = std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec)};
}

std::string openDescriptors() {
  std::set<std::string> lines;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code closed;
    const fs::path aim = fs::read_symlink(entry.path(), closed);
    if (!closed && aim.string().find("/fd") == std::string::npos)
      lines.insert(entry.path().filename().string() + " " + aim.string());
  }
  std::string all;
  for (const std::string& line : lines) all += line + "\n";
  return all;
}

}  // namespace tarsil
