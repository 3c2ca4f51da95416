#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "tests/cli-report/ScratchFolder.hpp"

namespace tarsil::cli {
namespace {

/// What the programs of these tests keep for good goes into a folder of their own: another test's terminal
/// may have had the name of this one's.
class OwnHome : public testing::Environment {
 public:
  void SetUp() override {
    folder_.emplace();
    setenv("HOME", folder_->path().c_str(), 1);
    // Terminals of tests are what most people have.
    setenv("TERM", "xterm", 1);
  }
  void TearDown() override { folder_.reset(); }

 private:
  std::optional<ScratchFolder> folder_;
};

const auto* const ownHome = testing::AddGlobalTestEnvironment(new OwnHome);

}  // namespace
}  // namespace tarsil::cli
