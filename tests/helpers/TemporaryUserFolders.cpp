#include "tests/helpers/TemporaryUserFolders.hpp"

#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "tarsil/platform/UserFolders.hpp"

namespace tarsil {
namespace {

class FixedUserFolders final : public UserFolders {
 public:
  explicit FixedUserFolders(std::string home) : home_(std::move(home)) {}
  std::string home() override { return home_; }
  std::string documents() override { return home_ + "/Documents"; }

 private:
  std::string home_;
};

std::filesystem::path freshFolder() {
  std::string path = (std::filesystem::temp_directory_path() / "tarsil-home-XXXXXX").string();
  if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("cannot make a folder like " + path);
  return path;
}

}  // namespace

TemporaryUserFolders::TemporaryUserFolders()
    : home_(freshFolder()), folders_(std::make_shared<FixedUserFolders>(home_.string())) {}

TemporaryUserFolders::~TemporaryUserFolders() {
  std::error_code ignored;
  std::filesystem::remove_all(home_, ignored);
}

std::string contentsOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

}  // namespace tarsil
