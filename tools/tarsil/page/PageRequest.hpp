#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tarsil::cli {

/// What a browser asks for, as its bytes say it.
struct PageRequest {
  std::string_view method;
  /// Without what stands behind a "?".
  std::string_view path;
  /// Of the header; empty where there is none.
  std::string_view host;
};

/// Where the live page is, and who gets it: whoever has the link.
struct PageAddress {
  std::uint16_t port = 0;
  /// What the link has that nobody can guess.
  std::string token;
  /// The session can be controlled there, not only watched.
  bool takesOrders = false;

  std::string link() const;
};

enum class PageVerdict : std::uint8_t {
  /// The page itself.
  page,
  /// The events that it lives on.
  stream,
  /// To do what `orderIn` says.
  order,
  /// Without the link, by another host's name (a foreign page that lets its name point here), or an order to
  /// a page that takes none.
  forbidden,
  unknown,
  wrongMethod,
};

PageVerdict verdictOn(const PageRequest& request, const PageAddress& address);

/// The last part of a path: "stop".
std::string_view orderIn(std::string_view path);

/// 128 random bits in hexadecimal digits. Throws std::system_error when the system has none.
std::string newToken();

}  // namespace tarsil::cli
