#include "tarsil/drivers/vitals/MEDXINGFrame.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

Bytes frame(std::uint8_t saturation) {
  return {0xAA, 0x55, 0x0F, 0x07, 0x23, 0x95, 0x01, 0x48, saturation, 0x00, 0xC7};
}

class Host : public KivStressPortDelegate {
 public:
  void onReceivedSpO2WithSpO2(float SpO2, std::int64_t status) override { values.emplace_back(SpO2, status); }
  std::vector<std::pair<float, std::int64_t>> values;
};

class MEDXINGFrameTest : public testing::Test {
 protected:
  void receive(const Bytes& chunk) { MEDXINGFrame::report(chunk, befoSpO2Value, host); }

  std::shared_ptr<Host> host = std::make_shared<Host>();
  std::string befoSpO2Value;
};

TEST_F(MEDXINGFrameTest, ReportsASaturationOnceUntilItChanges) {
  receive(frame(0x61));
  EXPECT_THAT(host->values, ElementsAre(Pair(97.0F, 1)));
  receive(frame(0x61));
  EXPECT_THAT(host->values, ElementsAre(Pair(97.0F, 1)));
  receive(frame(0x7F));
  EXPECT_THAT(host->values, ElementsAre(Pair(97.0F, 1), Pair(-1.0F, 1)));
  receive(frame(0x61));
  EXPECT_THAT(host->values, ElementsAre(Pair(97.0F, 1), Pair(-1.0F, 1), Pair(97.0F, 1)));
}

TEST_F(MEDXINGFrameTest, EverySaturationAbove100IsMinusOne) {
  EXPECT_EQ(MEDXINGFrame::parse(frame(0))->saturation, 0.0F);
  EXPECT_EQ(MEDXINGFrame::parse(frame(100))->saturation, 100.0F);
  EXPECT_EQ(MEDXINGFrame::parse(frame(101))->saturation, -1.0F);
  EXPECT_EQ(MEDXINGFrame::parse(frame(255))->saturation, -1.0F);
}

TEST_F(MEDXINGFrameTest, TwoDifferentValuesAbove100AreTwoReports) {
  receive(frame(0x7F));
  receive(frame(0x80));
  EXPECT_THAT(host->values, ElementsAre(Pair(-1.0F, 1), Pair(-1.0F, 1)));
}

TEST_F(MEDXINGFrameTest, KeepsTheTextAsLowerCaseDigits) {
  receive(frame(0x0A));
  EXPECT_EQ(befoSpO2Value, "0a");
  receive(frame(0x5F));
  EXPECT_EQ(befoSpO2Value, "5f");
}

TEST_F(MEDXINGFrameTest, AFrameThatEndsBeforeTheSaturationIsNoneOnce) {
  for (const std::size_t length : {6U, 7U, 8U}) {
    befoSpO2Value.clear();
    host->values.clear();
    Bytes cut = frame(0x61);
    cut.resize(length);
    receive(cut);
    receive(cut);
    EXPECT_EQ(befoSpO2Value, "范围越界") << length;
    EXPECT_THAT(host->values, ElementsAre(Pair(-1.0F, 1))) << length;
  }
}

TEST_F(MEDXINGFrameTest, AConstantSaturationInPiecesIsNeverANumberThatNobodyMeasured) {
  const Bytes whole = frame(0x61);
  for (int i = 0; i < 2; ++i) {
    receive(whole);
    receive(Bytes(whole.begin(), whole.begin() + 7));
    receive(Bytes(whole.begin() + 7, whole.end()));
  }
  EXPECT_THAT(host->values, ElementsAre(Pair(97.0F, 1), Pair(-1.0F, 1), Pair(97.0F, 1), Pair(-1.0F, 1)));
}

TEST_F(MEDXINGFrameTest, ChunksOfFiveBytesOrLessAreNoMeasurement) {
  for (std::size_t length = 0; length <= 5; ++length) {
    Bytes cut = frame(0x61);
    cut.resize(length);
    receive(cut);
  }
  EXPECT_THAT(host->values, IsEmpty());
  EXPECT_EQ(befoSpO2Value, "");
}

TEST_F(MEDXINGFrameTest, AFrameWithOnlyTheSaturationByteAfterTheMarkIsEnough) {
  Bytes cut = frame(0x61);
  cut.resize(9);
  receive(cut);
  EXPECT_THAT(host->values, ElementsAre(Pair(97.0F, 1)));
}

TEST_F(MEDXINGFrameTest, BothBytesOfTheMarkMustBeInPlace) {
  for (const std::size_t position : {4U, 5U}) {
    Bytes other = frame(0x61);
    other[position] ^= 0x01;
    receive(other);
  }
  Bytes shifted = frame(0x61);
  shifted.insert(shifted.begin(), 0x00);
  receive(shifted);
  EXPECT_THAT(host->values, IsEmpty());
}

TEST_F(MEDXINGFrameTest, AFrameSplitAcrossTwoChunksIsLostAtEveryCut) {
  const Bytes whole = frame(0x61);
  // Cut behind the mark, the first part counts as a frame without a saturation; so cut before it.
  for (std::ptrdiff_t cut = 1; cut <= 5; ++cut) {
    receive(Bytes(whole.begin(), whole.begin() + cut));
    receive(Bytes(whole.begin() + cut, whole.end()));
  }
  EXPECT_THAT(host->values, IsEmpty());
}

TEST_F(MEDXINGFrameTest, TheFilterWorksWithoutAHost) {
  MEDXINGFrame::report(frame(0x61), befoSpO2Value, nullptr);
  EXPECT_EQ(befoSpO2Value, "61");
  receive(frame(0x61));
  EXPECT_THAT(host->values, IsEmpty());
}

}  // namespace
}  // namespace tarsil
