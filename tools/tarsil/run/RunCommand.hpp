#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tools/tarsil/Command.hpp"
#include "tools/tarsil/run/Journal.hpp"
#include "tools/tarsil/run/Partners.hpp"
#include "tarsil/exercise/Protocol.hpp"
#include "tools/tarsil/run/Station.hpp"

namespace tarsil {
class BluetoothCentral;
class VirtualTime;
}  // namespace tarsil

namespace tarsil::cli {

class Report;
class Session;

/// `tarsil run`: a whole exercise test, on real devices or simulated ones.
class RunCommand final : public Command {
 public:
  std::string name() const override { return "run"; }
  std::string summary() const override { return "Run a whole exercise test on a station"; }
  void declare(CLI::App& command) override;
  ExitCode run() override;

 private:
  Protocol chosenProtocol() const;
  Station::Plan planFor(Partners* partners) const;
  Station::Plan planWithoutOximeter(Partners* partners) const;
  /// Throws CommandFailure where there is none.
  std::shared_ptr<BluetoothCentral> oximeterCentral() const;
  std::unique_ptr<Partners> makePartners() const;
  static void finish(Report& report, ExitCode result);
  /// Lets time pass until the session is over, or something has cut in.
  void keepGoing(Session& session, VirtualTime* time) const;
  void liveFaster(const Session& session, VirtualTime& time) const;

  std::string exercise_ = "LodeTreadmill";
  std::string bp_;
  std::string spo2_;
  std::string protocol_;
  std::string report_;
  bool simulate_ = false;
  double speedup_ = 1;
};

}  // namespace tarsil::cli
