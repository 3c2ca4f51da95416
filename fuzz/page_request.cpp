// What a browser, or anybody else on this machine, asks the live page for: nothing is answered, and nothing
// is ordered, without the link and this machine's name.

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/expect.hpp"
#include "tools/tarsil/page/PageRequest.hpp"

using namespace tarsil::cli;

namespace {

/// The text up to the next line end, which is taken away with it.
std::string_view takeLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(line.size() + 1, text.size()));
  return line;
}

/// Each of the few good requests by itself, all others by what they lack.
PageVerdict expectedOn(std::string_view method, std::string_view path, std::string_view host,
                       const PageAddress& address) {
  if (host != "127.0.0.1:8080" && host != "localhost:8080") return PageVerdict::forbidden;
  const std::string link = "/" + address.token;
  if (path == link + "/") return method == "GET" ? PageVerdict::page : PageVerdict::wrongMethod;
  if (path == link + "/events") return method == "GET" ? PageVerdict::stream : PageVerdict::wrongMethod;
  for (const char* order : {"stop", "hold", "release", "next", "pressure", "mark"}) {
    if (path != link + "/" + order) continue;
    if (method != "POST") return PageVerdict::wrongMethod;
    return address.takesOrders ? PageVerdict::order : PageVerdict::forbidden;
  }
  return path == link || path.starts_with(link + "/") ? PageVerdict::unknown : PageVerdict::forbidden;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  const PageAddress address{.port = 8080, .token = "0123456789abcdef", .takesOrders = size % 2 == 0};
  const std::string_view method = takeLine(text);
  const std::string_view host = takeLine(text);
  // Random bytes never find the token.
  const std::string_view way = takeLine(text);
  const bool hasLink = way.starts_with('T');
  const std::string path = hasLink ? "/" + address.token + std::string(way.substr(1)) : std::string(way);
  const PageVerdict verdict = verdictOn({.method = method, .path = path, .host = host}, address);
  tarsil::expect(verdict == expectedOn(method, path, host, address));
  return 0;
}
