#include "tarsil/runtime/Observable.hpp"

#include <memory>
#include <optional>
#include <vector>

#include <gmock/gmock.h>

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Port : public Observable {
 public:
  void setBaudRate(int baudRate) {
    baudRate_ = baudRate;
    announce("baudRate");
  }
  void insert(std::vector<std::size_t> indexes) {
    announce({"ports", KeyChange::Kind::insertion, std::move(indexes)});
  }
  int baudRate() const { return baudRate_; }

 private:
  int baudRate_ = 0;
};

TEST(ObservableTest, CallsTheObserverAfterTheChange) {
  Port port;
  std::vector<int> seen;
  const auto observation = port.observe("baudRate", [&](const KeyChange& change) {
    EXPECT_EQ(change.key, "baudRate");
    EXPECT_EQ(change.kind, KeyChange::Kind::setting);
    EXPECT_THAT(change.indexes, IsEmpty());
    seen.push_back(port.baudRate());
  });
  port.setBaudRate(4800);
  port.setBaudRate(9600);
  EXPECT_THAT(seen, ElementsAre(4800, 9600));
}

TEST(ObservableTest, TellsThePositionsOfAnInsertion) {
  Port port;
  std::vector<std::size_t> indexes;
  const auto observation = port.observe("ports", [&](const KeyChange& change) {
    EXPECT_EQ(change.kind, KeyChange::Kind::insertion);
    indexes = change.indexes;
  });
  port.insert({1, 3});
  EXPECT_THAT(indexes, ElementsAre(1, 3));
}

TEST(ObservableTest, CallsOnlyTheObserversOfTheKeyInTheirOrder) {
  Port port;
  std::vector<int> calls;
  const auto first = port.observe("baudRate", [&](const KeyChange&) { calls.push_back(1); });
  const auto other = port.observe("name", [&](const KeyChange&) { calls.push_back(2); });
  const auto second = port.observe("baudRate", [&](const KeyChange&) { calls.push_back(3); });
  port.setBaudRate(4800);
  EXPECT_THAT(calls, ElementsAre(1, 3));
}

TEST(ObservableTest, AnObservationMayOutliveTheObject) {
  std::optional<Port> port(std::in_place);
  auto observation = port->observe("baudRate", [](const KeyChange&) {});
  port.reset();
  observation.reset();
}

TEST(ObservableTest, AnObserverMayEndTheObject) {
  auto port = std::make_unique<Port>();
  std::vector<int> calls;
  const auto first = port->observe("baudRate", [&](const KeyChange&) {
    calls.push_back(1);
    port.reset();
  });
  const auto second = port->observe("baudRate", [&](const KeyChange&) { calls.push_back(2); });
  port->setBaudRate(4800);
  EXPECT_THAT(calls, ElementsAre(1, 2));
}

TEST(ObservableTest, DroppingAnObservationLetsGoOfTheObserver) {
  Port port;
  const auto held = std::make_shared<int>();
  auto observation = port.observe("baudRate", [held](const KeyChange&) {});
  EXPECT_EQ(held.use_count(), 2);
  observation.reset();
  EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
}  // namespace tarsil
