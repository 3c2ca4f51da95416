#include "tarsil/runtime/Work.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "tarsil/runtime/DispatchQueue.hpp"

namespace tarsil {
namespace {

/// Says where it stands when it is called, and holds `Size` bytes.
template <std::size_t Size>
struct Located {
  void operator()() const { *place = this; }
  const void** place;
  std::array<std::uint8_t, Size - sizeof(void*)> bytes{};
};

bool isWithin(const void* place, const Work& work) {
  const auto* const first = reinterpret_cast<const std::uint8_t*>(&work);
  return std::less_equal<>()(first, place) &&
         std::less<>()(place, static_cast<const void*>(first + sizeof work));
}

TEST(WorkTest, IsNoneByItself) {
  EXPECT_FALSE(Work());
  EXPECT_FALSE(Work(nullptr));
  EXPECT_FALSE(Work(std::function<void()>()));
  EXPECT_FALSE(Work(static_cast<void (*)()>(nullptr)));
}

TEST(WorkTest, CallsWhatItHoldsAsOftenAsItIsAsked) {
  int calls = 0;
  const Work work = [&calls] { return ++calls; };
  ASSERT_TRUE(work);
  work();
  work();
  EXPECT_EQ(calls, 2);
}

TEST(WorkTest, HoldsWhatCannotBeCopied) {
  int got = 0;
  const Work work = [&got, value = std::make_unique<int>(7)] { got = *value; };
  work();
  EXPECT_EQ(got, 7);
}

TEST(WorkTest, KeepsWithinWhatTakesEightPointers) {
  const void* place = nullptr;
  const Work small = Located<8 * sizeof(void*)>{&place};
  small();
  EXPECT_TRUE(isWithin(place, small));
  const Work large = Located<8 * sizeof(void*) + 1>{&place};
  large();
  EXPECT_FALSE(isWithin(place, large));
}

TEST(WorkTest, MovesAndLeavesNothingBehind) {
  int calls = 0;
  std::array<std::uint8_t, 100> ballast{};
  for (const bool isLarge : {false, true}) {
    Work work = [&calls] { ++calls; };
    if (isLarge) work = [&calls, ballast] { calls += 1 + ballast[0]; };
    Work other = std::move(work);
    EXPECT_FALSE(work);
    other();
    work = std::move(other);
    EXPECT_FALSE(other);
    work();
  }
  EXPECT_EQ(calls, 4);
}

TEST(WorkTest, Swaps) {
  int calls = 0;
  Work one = [&calls] { calls += 1; };
  Work ten = [&calls] { calls += 10; };
  Work none;
  one.swap(ten);
  one();
  EXPECT_EQ(calls, 10);
  one.swap(none);
  EXPECT_FALSE(one);
  none();
  EXPECT_EQ(calls, 20);
  ten();
  EXPECT_EQ(calls, 21);
}

TEST(WorkTest, LetsGoOfWhatItHoldsOnce) {
  const auto held = std::make_shared<int>();
  std::array<std::uint8_t, 100> ballast{};
  {
    Work small = [held] {};
    Work large = [held, ballast] { static_cast<void>(ballast); };
    EXPECT_EQ(held.use_count(), 3);
    Work moved = std::move(small);
    large = std::move(moved);
    EXPECT_EQ(held.use_count(), 2);
    large = nullptr;
    EXPECT_EQ(held.use_count(), 1);
    small = [held] {};
  }
  EXPECT_EQ(held.use_count(), 1);
}

/// Fails when it is copied, which is the only way to move it.
struct Stubborn {
  Stubborn() = default;
  Stubborn(const Stubborn& /*other*/) {
    if (isArmed) throw 1;
  }
  static inline bool isArmed = false;
};

TEST(WorkTest, MovesWhatCannotBeMovedWithoutFailing) {
  Work work = [stubborn = Stubborn()] { static_cast<void>(stubborn); };
  Stubborn::isArmed = true;
  Work other = std::move(work);
  EXPECT_TRUE(other);
  Stubborn::isArmed = false;
}

TEST(WorkTest, IsEmptyBeforeWhatItHoldsGoes) {
  Work work;
  bool wasEmpty = false;
  std::shared_ptr<void> lookingBack(nullptr, [&](void*) { wasEmpty = !work; });
  work = [lookingBack = std::move(lookingBack)] {};
  work = nullptr;
  EXPECT_TRUE(wasEmpty);
}

TEST(WorkTest, AQueueTakesWhatCannotBeCopied) {
  int got = 0;
  const auto queue = DispatchQueue::serial("a");
  queue.async([&got, value = std::make_unique<int>(7)] { got = *value; });
  queue.sync([] {});
  EXPECT_EQ(got, 7);
}

}  // namespace
}  // namespace tarsil
