#pragma once

#include <string>

#include "tarsil/exercise/Protocol.hpp"
#include "tools/tarsil/Command.hpp"

namespace tarsil::cli {

/// `tarsil protocols`: lists and prints those that come with the program, and checks files.
class ProtocolsCommand final : public Command {
 public:
  std::string name() const override { return "protocols"; }
  std::string summary() const override { return "List, print and check exercise protocols"; }
  void declare(CLI::App& command) override;
  ExitCode run() override;

 private:
  void check() const;

  std::string name_;
  std::string file_;
  std::string model_;
};

}  // namespace tarsil::cli
