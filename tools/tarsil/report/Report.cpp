#include "tools/tarsil/report/Report.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <system_error>
#include <utility>

#include "tarsil/runtime/DispatchQueue.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/report/csvLine.hpp"
#include "tools/tarsil/report/reportPage.hpp"
#include "tools/tarsil/report/reportText.hpp"

namespace tarsil::cli {
namespace {

Role roleOf(const std::string& port, const Station::Plan& plan) {
  if (port == plan.port) return Role::exercise;
  if (port == plan.pressurePort) return Role::pressure;
  return port == plan.oximeterPort ? Role::oximeter : Role::session;
}

}  // namespace

Report::Report(const std::filesystem::path& folder, const Protocol& protocol, const Station::Plan& plan,
               Journal& journal, const std::shared_ptr<Traffic>& traffic)
    : folder_(folder),
      plan_(plan),
      start_(journal.start()),
      traffic_(traffic),
      record_(protocol),
      script_(plan, protocol.device) {
  try {
    std::filesystem::create_directories(folder_);
    csvFile_ = std::make_unique<ReportFile>(folder_ / "session.csv");
    csvFile_->write(csvHeader);
    scriptFile_ = std::make_unique<ReportFile>(folder_ / "session.jsonl");
    scriptFile_->write(fmt::format("# {} on {}, {:%Y-%m-%d %H:%M:%S}\n", protocol.name, plan.model,
                                   fmt::localtime(std::chrono::system_clock::to_time_t(began_))) +
                       script_.beginning());
  } catch (const std::filesystem::filesystem_error& error) {
    throw CommandFailure(reportFailed, fmt::format("cannot create the folder {}: {}", folder_.string(),
                                                   error.code().message()));
  } catch (const ReportError& error) {
    throw CommandFailure(reportFailed, error.what());
  }
  journal.addReader([this](const Entry& entry) { hear(entry); });
  traffic_->setReader([this](const Chunk& chunk) { hear(chunk); });
}

Report::~Report() {
  *alive_ = false;
  traffic_->setReader(nullptr);
}

void Report::hear(const Entry& entry) {
  if (isFinished_) return;
  record_.hear(entry);
  attempt([&] { csvFile_->write(csvLine(entry)); });
  attempt([&] { scriptFile_->write(script_.lines(entry)); });
}

void Report::hear(const Chunk& chunk) {
  if (isFinished_) return;
  const Duration at = chunk.at - start_;
  const Role role = roleOf(chunk.port, plan_);
  // Ports that this session does not use.
  if (role == Role::session) return;
  attempt([&] { csvFile_->write(csvLine(chunk, at, role)); });
  attempt([&] { scriptFile_->write(script_.lines(chunk, at, role)); });
}

void Report::finish(ExitCode result) {
  if (std::exchange(isFinished_, true)) return;
  attempt([&] { csvFile_->close(); });
  attempt([&] {
    scriptFile_->write(script_.ending(record_.end()));
    scriptFile_->close();
  });
  attempt([&] {
    ReportFile page(folder_ / "report.html");
    page.write(reportPage(record_, traitsOf(plan_.model, record_.protocol().device), began_, result));
    page.close();
  });
}

void Report::attempt(const std::function<void()>& writing) {
  try {
    writing();
  } catch (const ReportError& error) {
    if (failure_) return;
    failure_ = error.what();
    DispatchQueue::main().async([this, alive = alive_] {
      if (*alive && onFailure) onFailure(*failure_);
    });
  }
}

}  // namespace tarsil::cli
