#include "tools/tarsil/replay/TrafficLogReader.hpp"

#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

#include "tarsil/log/FileManagerTool.hpp"

namespace tarsil::cli {
namespace {

class FoldersIn final : public UserFolders {
 public:
  explicit FoldersIn(std::string home) : home_(std::move(home)) {}

  std::string home() override { return home_; }
  std::string documents() override { return home_ + "/Documents"; }

 private:
  std::string home_;
};

std::filesystem::path newFolder() {
  std::string path = std::filesystem::temp_directory_path() / "tarsil-replay-XXXXXX";
  if (mkdtemp(path.data()) != nullptr) return path;
  throw std::filesystem::filesystem_error("cannot create a folder", path,
                                          std::error_code(errno, std::generic_category()));
}

// A record is a time stamp of 19 characters, "->" and the text.
constexpr std::size_t stampLength = 19 + 2;

}  // namespace

TrafficLogReader::TrafficLogReader() : home_(newFolder()), folders_(std::make_shared<FoldersIn>(home_)) {}

TrafficLogReader::~TrafficLogReader() {
  std::error_code ignored;
  std::filesystem::remove_all(home_, ignored);
}

std::vector<std::string> TrafficLogReader::newRecords() {
  FileManagerTool::share().fileFlush();
  if (!log_.is_open()) log_.open(FileManagerTool::share().getRootPath());
  log_.clear();
  std::ostringstream added;
  if (log_.peek() != std::ifstream::traits_type::eof()) added << log_.rdbuf();

  // Every record begins with a line end, so the piece before the first one is empty.
  std::vector<std::string> records;
  std::istringstream lines(added.str());
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line)) records.push_back(line.substr(std::min(stampLength, line.size())));
  return records;
}

}  // namespace tarsil::cli
