#include "tools/tarsil/report/ReportCommand.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <system_error>

#include "tarsil/exercise/Protocol.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/report/ReportFile.hpp"
#include "tools/tarsil/report/SessionFolder.hpp"

namespace tarsil::cli {
namespace {

Journal journalIn(const std::filesystem::path& folder) {
  const std::filesystem::path path = folder / "journal.jsonl";
  std::ifstream file(path);
  if (!file) {
    throw CommandFailure(
        badInput, fmt::format("cannot read {}: {}", path.string(), std::generic_category().message(errno)));
  }
  const std::string text(std::istreambuf_iterator<char>(file), {});
  auto journal = readJournal(text);
  if (!journal) throw CommandFailure(badInput, fmt::format("{} is no journal of a session", path.string()));
  return std::move(*journal);
}

}  // namespace

void ReportCommand::declare(CLI::App& command) {
  command.add_option("FOLDER", folder_, "Folder of the session, with its journal.jsonl")->required();
}

ExitCode ReportCommand::run() {
  const Journal journal = journalIn(folder_);
  try {
    writeReport(folder_, journal);
  } catch (const ReportError& error) {
    throw CommandFailure(reportFailed, error.what());
  } catch (const ProtocolError& error) {
    throw CommandFailure(badInput, error.what());
  }
  if (journal.isTorn) std::cout << "the journal's last line was cut off; it is left out\n";
  if (!journal.unreadableLines.empty())
    std::cout << fmt::format("{} lines of the journal cannot be read; they are left out\n",
                             journal.unreadableLines.size());
  std::cout << (std::filesystem::path(folder_) / "report.html").string() << '\n';
  return succeeded;
}

}  // namespace tarsil::cli
