#include "tools/tarsil/page/PageRequest.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace tarsil::cli {
namespace {

constexpr std::array<std::string_view, 6> orders{"stop", "hold", "release", "next", "pressure", "mark"};

/// Takes the same time wherever they differ.
bool isSame(std::string_view one, std::string_view other) {
  if (one.size() != other.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < one.size(); ++i)
    difference |= static_cast<unsigned>(one[i]) ^ static_cast<unsigned>(other[i]);
  return difference == 0;
}

bool isOurs(std::string_view host, std::uint16_t port) {
  return host == fmt::format("127.0.0.1:{}", port) || host == fmt::format("localhost:{}", port);
}

}  // namespace

std::string PageAddress::link() const {
  return fmt::format("http://127.0.0.1:{}/{}/", port, token);
}

PageVerdict verdictOn(const PageRequest& request, const PageAddress& address) {
  if (!isOurs(request.host, address.port)) return PageVerdict::forbidden;
  if (!request.path.starts_with('/')) return PageVerdict::forbidden;
  const std::string_view path = request.path.substr(1);
  const std::size_t slash = path.find('/');
  if (!isSame(path.substr(0, slash), address.token)) return PageVerdict::forbidden;

  const std::string_view rest = slash == std::string_view::npos ? "?" : path.substr(slash + 1);
  if (rest.empty()) return request.method == "GET" ? PageVerdict::page : PageVerdict::wrongMethod;
  if (rest == "events") return request.method == "GET" ? PageVerdict::stream : PageVerdict::wrongMethod;
  if (std::find(orders.begin(), orders.end(), rest) == orders.end()) return PageVerdict::unknown;
  if (request.method != "POST") return PageVerdict::wrongMethod;
  return address.takesOrders ? PageVerdict::order : PageVerdict::forbidden;
}

std::string_view orderIn(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

std::string newToken() {
  std::array<unsigned char, 16> bytes{};
  if (getentropy(bytes.data(), bytes.size()) != 0)
    throw std::system_error(errno, std::generic_category(), "no random bytes");
  std::string token;
  for (const unsigned char byte : bytes) token += fmt::format("{:02x}", byte);
  return token;
}

}  // namespace tarsil::cli
