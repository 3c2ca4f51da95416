#include "tarsil/guard/watch/detail/watchNames.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "tarsil/platform/UserFolders.hpp"

namespace tarsil::detail {
namespace {

// So that the end of a long path, which tells adapters apart, is read by people; the whole line is in the
// number.
constexpr std::size_t longestReadablePart = 60;

std::uint64_t fingerprint(const std::string& text) {
  std::uint64_t hash = 14695981039346656037U;
  for (const char character : text) hash = (hash ^ static_cast<unsigned char>(character)) * 1099511628211U;
  return hash;
}

/// The same for the same line in every process; fit for a file's name.
std::string nameOf(const std::string& line) {
  std::string readable =
      line.size() > longestReadablePart ? line.substr(line.size() - longestReadablePart) : line;
  std::replace_if(
      readable.begin(), readable.end(), [](unsigned char c) { return c > 126 || !std::isalnum(c); }, '-');
  std::array<char, 17> number{};
  std::snprintf(number.data(), number.size(), "%016llx", static_cast<unsigned long long>(fingerprint(line)));
  return readable + "-" + number.data();
}

}  // namespace

std::string recordPath(const std::string& line, const std::string& records) {
  const std::string folder =
      records.empty() ? UserFolders::shared()->home() + "/.local/state/tarsil/watch" : records;
  return folder + "/" + nameOf(line);
}

MailAddress::MailAddress(const std::string& line) {
  const std::string name = "tarsil-watcher " + nameOf(line);
  static_assert(sizeof address_.sun_path > 1 + 15 + longestReadablePart + 1 + 16);
  address_.sun_family = AF_UNIX;
  // The first character stays zero, which keeps the name out of the file system.
  std::copy(name.begin(), name.end(), address_.sun_path + 1);
  length_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
}

}  // namespace tarsil::detail
