#pragma once

#include <sys/types.h>

#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "tests/cli-report/ScratchFolder.hpp"

namespace tarsil::cli {

/// A real browser with one page, driven through its debugger's pipe. It goes with this object.
class Browser {
 public:
  static bool isInstalled();

  Browser();
  ~Browser();
  Browser(const Browser&) = delete;
  Browser& operator=(const Browser&) = delete;

  /// Waits until the page is there.
  void go(const std::string& address);
  /// In pixels; dark as the system would ask for it.
  void setWindow(int width, int height, bool isDark = false);
  /// What the expression has as text.
  std::string valueOf(const std::string& expression);
  /// Waits until it holds; what does not come fails the test, with what the page shows.
  void waitFor(const std::string& expression);
  /// Kept in the folder of the tests' output.
  void keepPicture(const std::string& name);

 private:
  nlohmann::json call(const std::string& method, const nlohmann::json& parameters);
  /// The next thing that it says.
  nlohmann::json read();

  ScratchFolder folder_;
  pid_t process_ = -1;
  int commands_ = -1;
  int answers_ = -1;
  std::string unread_;
  int calls_ = 0;
  /// A page has been loaded since this was cleared.
  bool hasLoaded_ = false;
  /// Of the page.
  std::string session_;
};

}  // namespace tarsil::cli
