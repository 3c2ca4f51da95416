#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/tarsil/Command.hpp"

namespace tarsil::cli {

class LineCheck;

/// `tarsil check`: whether devices can be reached and answer. Nothing moves.
class CheckCommand final : public Command {
 public:
  std::string name() const override { return "check"; }
  std::string summary() const override { return "Check that devices answer; nothing moves"; }
  void declare(CLI::App& command) override;
  ExitCode run() override;

 private:
  void takeStation();
  std::shared_ptr<LineCheck> checkOf(const std::string& place) const;

  std::vector<std::string> places_;
  std::string station_;
  double seconds_ = 5;
};

}  // namespace tarsil::cli
