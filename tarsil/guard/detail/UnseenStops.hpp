#pragma once

#include <set>
#include <string>

namespace tarsil::detail {

/// The devices of this process that were not seen to stop, by the identity of their line: what one station
/// could not confirm, the next one on that line goes on with. Main thread.
class UnseenStops {
 public:
  static void add(const std::string& line) { lines().insert(line); }
  static void remove(const std::string& line) { lines().erase(line); }
  static bool contains(const std::string& line) { return lines().contains(line); }

 private:
  static std::set<std::string>& lines() {
    static std::set<std::string> all;
    return all;
  }
};

}  // namespace tarsil::detail
