#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarsil/exercise/ExerciseTest.hpp"
#include "tarsil/exercise/Protocol.hpp"
#include "tarsil/guard/GuardedStation.hpp"
#include "tarsil/guard/Journal.hpp"
#include "tools/tarsil/Command.hpp"
#include "tools/tarsil/run/Partners.hpp"

namespace tarsil {
class BluetoothCentral;
class VirtualTime;
}  // namespace tarsil

namespace tarsil::cli {

class PageServer;
class SessionFolder;

/// `tarsil run`: a whole exercise test on a guarded station, of real devices or simulated ones.
class RunCommand final : public Command {
 public:
  std::string name() const override { return "run"; }
  std::string summary() const override { return "Run a whole exercise test on a station"; }
  void declare(CLI::App& command) override;
  ExitCode run() override;

 private:
  /// What the station's file says and the command line does not.
  void takeStation();
  void checkOptions() const;
  bool keepsSession() const;
  /// Asks the person at the terminal for what was not given; Enter skips it.
  void askForNames();
  /// The one that was named, or several of which the first one that the station carries is meant.
  std::vector<Protocol> chosenProtocols() const;
  Protocol carriedOne(const std::vector<Protocol>& candidates, const GuardedStation::Plan& plan) const;
  GuardedStation::Plan planFor(Partners* partners) const;
  void chooseOximeter(GuardedStation::Plan& plan, Partners* partners) const;
  /// Throws CommandFailure where there is none.
  std::shared_ptr<BluetoothCentral> oximeterCentral() const;
  std::unique_ptr<Partners> makePartners() const;
  std::unique_ptr<SessionFolder> makeFolder(const Protocol& protocol, const GuardedStation::Plan& plan) const;
  /// None where nobody asked for one; its link is printed.
  std::unique_ptr<PageServer> makePage() const;
  ExitCode go(GuardedStation& station, ExerciseTest& test, VirtualTime* time) const;
  void liveFaster(const ExerciseTest& test, VirtualTime& time) const;

  /// To ask which options were given.
  CLI::App* declared_ = nullptr;
  std::string station_;
  std::string exercise_ = "LodeTreadmill";
  std::string bp_;
  std::string spo2_;
  std::string protocol_;
  std::string report_;
  std::string patient_;
  std::string operator_;
  std::string note_;
  std::optional<float> mass_;
  Limits limits_;
  bool keepsNothing_ = false;
  bool isStrict_ = false;
  bool simulate_ = false;
  double speedup_ = 1;
  bool hasPage_ = false;
  bool pageTakesOrders_ = false;
  /// 0: one that is free.
  std::uint16_t pagePort_ = 0;
};

}  // namespace tarsil::cli
