#pragma once

#include <map>
#include <string>

#include "tools/tarsil/run/Journal.hpp"

namespace tarsil::cli {

/// Shows a session as lines of a table on standard output: time, whom it is about, what was asked, what came
/// back. Requests that repeat every second, and answers that say the same again, are left out.
class PlainView {
 public:
  explicit PlainView(Journal& journal);

 private:
  void show(const Entry& entry);

  std::map<std::string, std::string> lastAnswers_;
};

}  // namespace tarsil::cli
