#include "tests/faults/ProcessSize.hpp"

#include <malloc.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>

namespace tarsil {
namespace {

namespace fs = std::filesystem;

std::atomic<std::size_t> inUse = 0;

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
          .heap = inUse,
          .descriptors = countOf("/proc/self/fd") - 1,  // without the one that looks
          .threads = countOf("/proc/self/task"),
          .used = std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec)};
}

}  // namespace tarsil

void* operator new(std::size_t size) {
  void* memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  tarsil::inUse += malloc_usable_size(memory);
  return memory;
}
void operator delete(void* memory) noexcept {
  if (memory != nullptr) tarsil::inUse -= malloc_usable_size(memory);
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  operator delete(memory);
}
