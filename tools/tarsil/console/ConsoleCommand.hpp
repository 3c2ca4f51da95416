#pragma once

#include <string>

#include "tarsil/guard/GuardedStation.hpp"
#include "tools/tarsil/Command.hpp"

namespace tarsil::cli {

/// `tarsil console`: commands to one exercise device, typed by hand, on a guarded station.
class ConsoleCommand final : public Command {
 public:
  std::string name() const override { return "console"; }
  std::string summary() const override { return "Command an exercise device by hand"; }
  void declare(CLI::App& command) override;
  ExitCode run() override;

 private:
  GuardedStation::Plan plan() const;

  std::string device_;
  std::string bp_;
  std::string spo2_;
};

}  // namespace tarsil::cli
