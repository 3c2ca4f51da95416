#include "tarsil/runtime/AnnouncedDescriptor.hpp"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "tarsil/runtime/DispatchSource.hpp"
#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tests/runtime/descriptors.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AnnouncedDescriptorTest : public testing::Test {
 protected:
  AnnouncedDescriptorTest() {
    source->setEventHandler([this] { received.push_back(receive(pipe.reading.get(), 2)); });
    source->resume();
  }
  std::vector<std::string> settle() {
    time.settle();
    return std::exchange(received, {});
  }

  VirtualTime time;
  Pair pipe = makePipe();
  std::optional<AnnouncedDescriptor> announced{pipe.reading.get()};
  std::shared_ptr<DispatchSource> source = DispatchSource::read(pipe.reading.get(), DispatchQueue::global());
  std::vector<std::string> received;
};

TEST_F(AnnouncedDescriptorTest, WhatCameBeforeItWasWatchedIsRead) {
  send(pipe.writing, "abc");
  EXPECT_THAT(settle(), ElementsAre("ab", "c"));
}

TEST_F(AnnouncedDescriptorTest, IsAskedAfterAnAnnouncementOnly) {
  EXPECT_THAT(settle(), IsEmpty());
  send(pipe.writing, "abc");
  time.advance(std::chrono::minutes(1));
  EXPECT_THAT(settle(), IsEmpty());
  announced->announce();
  EXPECT_THAT(settle(), ElementsAre("ab", "c"));
  announced->announce();
  EXPECT_THAT(settle(), IsEmpty());
}

TEST_F(AnnouncedDescriptorTest, TellsOfItsEnd) {
  EXPECT_THAT(settle(), IsEmpty());
  pipe.writing = {};
  announced->announce();
  EXPECT_THAT(settle(), ElementsAre(""));
}

TEST_F(AnnouncedDescriptorTest, IsAskedAlwaysWhenNobodyAnnouncesItAnyMore) {
  EXPECT_THAT(settle(), IsEmpty());
  announced.reset();
  EXPECT_THAT(settle(), IsEmpty());
  send(pipe.writing, "a");
  EXPECT_THAT(settle(), ElementsAre("a"));
}

TEST_F(AnnouncedDescriptorTest, OtherDescriptorsAreReadBetweenTwoTimersOfOneInstant) {
  const Pair other = makePipe();
  const auto reader = DispatchSource::read(other.reading.get(), DispatchQueue::global());
  reader->setEventHandler([&] { received.push_back(receive(other.reading.get())); });
  reader->resume();
  const auto write = [&](const char* text) {
    return [&, text](Timer&) {
      received.push_back(std::string("timer ") + text);
      send(other.writing, text);
    };
  };
  const auto first = Timer::scheduled(std::chrono::seconds(1), false, write("a"));
  const auto second = Timer::scheduled(std::chrono::seconds(1), false, write("b"));
  time.advance(std::chrono::seconds(1));
  EXPECT_THAT(std::exchange(received, {}), ElementsAre("timer a", "a", "timer b", "b"));
}

TEST(AnnouncedDescriptorOnTheMachinesTimeTest, IsReadUnannounced) {
  const Pair pipe = makePipe();
  const AnnouncedDescriptor announced(pipe.reading.get());
  const auto source = DispatchSource::read(pipe.reading.get(), DispatchQueue::main());
  std::string received;
  source->setEventHandler([&] { received += receive(pipe.reading.get()); });
  source->resume();
  send(pipe.writing, "abc");
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return received == "abc"; }, std::chrono::seconds(60)));
}

}  // namespace
}  // namespace tarsil
