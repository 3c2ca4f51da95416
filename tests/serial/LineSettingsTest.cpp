#include "tarsil/serial/detail/LineSettings.hpp"

#include <gtest/gtest.h>
#include <termios.h>

#include <cstring>

namespace tarsil::detail {
namespace {

using Parity = ORSSerialPortParity;

tcflag_t controlFlags(const LineSettings& settings, tcflag_t before = 0) {
  TerminalAttributes current;
  current.modes.c_cflag = before;
  return attributesFor(settings, current).modes.c_cflag;
}

TEST(LineSettingsTest, MakesTheTerminalRaw) {
  TerminalAttributes cooked;
  cooked.modes.c_iflag = ICRNL | IXON | BRKINT | ISTRIP;
  cooked.modes.c_oflag = OPOST | ONLCR;
  cooked.modes.c_lflag = ICANON | ISIG | ECHO | ECHONL | IEXTEN;
  const TerminalModes modes = attributesFor({}, cooked).modes;
  EXPECT_EQ(modes.c_iflag & (ICRNL | IXON | BRKINT | ISTRIP), 0U);
  EXPECT_EQ(modes.c_oflag & OPOST, 0U);
  EXPECT_EQ(modes.c_lflag & (ICANON | ISIG | ECHO | ECHONL | IEXTEN), 0U);
}

TEST(LineSettingsTest, ReadsEndAfterOneByteOrAFifthOfASecond) {
  const TerminalModes modes = attributesFor({}, {}).modes;
  EXPECT_EQ(modes.c_cc[VMIN], 1);
  EXPECT_EQ(modes.c_cc[VTIME], 2);
}

TEST(LineSettingsTest, KeepsWhatItDoesNotSet) {
  TerminalAttributes current;
  current.modes.c_cc[VEOF] = 4;
  current.modes.c_lflag = NOFLSH;
  const TerminalModes modes = attributesFor({}, current).modes;
  EXPECT_EQ(modes.c_cc[VEOF], 4);
  EXPECT_EQ(modes.c_lflag, static_cast<tcflag_t>(NOFLSH));
}

TEST(LineSettingsTest, ReceivedBytesAreLeftAloneAndAnsweredByNothing) {
  TerminalAttributes foreign;
  foreign.modes.c_iflag = ~tcflag_t{0};
  EXPECT_EQ(attributesFor({}, foreign).modes.c_iflag, 0U);
}

TEST(LineSettingsTest, OnlySevenAndEightDataBitsHaveASize) {
  const tcflag_t size = CSIZE;
  EXPECT_EQ(controlFlags({.numberOfDataBits = 8}, CS6) & size, static_cast<tcflag_t>(CS8));
  EXPECT_EQ(controlFlags({.numberOfDataBits = 7}, CS8) & size, static_cast<tcflag_t>(CS7));
  for (const std::uint64_t bits : {0U, 5U, 6U, 9U})
    EXPECT_EQ(controlFlags({.numberOfDataBits = bits}, CS8) & size, static_cast<tcflag_t>(CS5)) << bits;
}

TEST(LineSettingsTest, Parity) {
  const tcflag_t both = PARENB | PARODD;
  EXPECT_EQ(controlFlags({.parity = Parity::None}, PARENB) & both, 0U);
  EXPECT_EQ(controlFlags({.parity = Parity::Odd}) & both, both);
  EXPECT_EQ(controlFlags({.parity = Parity::Even}, both) & both, static_cast<tcflag_t>(PARENB));
}

TEST(LineSettingsTest, NoParityLeavesItsKindAlone) {
  EXPECT_NE(controlFlags({.parity = Parity::None}, PARENB | PARODD) & PARODD, 0U);
}

TEST(LineSettingsTest, AParityThatStickedBeforeIsAParityAgain) {
  TerminalAttributes mark;
  mark.stickParity = true;
  for (const Parity parity : {Parity::None, Parity::Odd, Parity::Even})
    EXPECT_FALSE(attributesFor({.parity = parity}, mark).stickParity);
}

TEST(LineSettingsTest, TwoOrMoreStopBitsAreTwo) {
  const tcflag_t two = CSTOPB;
  EXPECT_EQ(controlFlags({.numberOfStopBits = 1}, CSTOPB) & two, 0U);
  EXPECT_EQ(controlFlags({.numberOfStopBits = 0}, CSTOPB) & two, 0U);
  EXPECT_EQ(controlFlags({.numberOfStopBits = 2}) & two, two);
  EXPECT_EQ(controlFlags({.numberOfStopBits = 3}) & two, two);
}

TEST(LineSettingsTest, EchoIsTheTerminalsOwn) {
  EXPECT_NE(attributesFor({.shouldEchoReceivedData = true}, {}).modes.c_lflag & ECHO, 0U);
  EXPECT_EQ(attributesFor({.shouldEchoReceivedData = false}, {}).modes.c_lflag & ECHO, 0U);
}

TEST(LineSettingsTest, ReceivesWithoutACarrierAndHangsUpAtTheEnd) {
  const tcflag_t always = CREAD | CLOCAL | HUPCL;
  EXPECT_EQ(controlFlags({}) & always, always);
}

TEST(LineSettingsTest, FlowControlAndSpeedAreWhatWasSet) {
  TerminalAttributes before;
  before.rtsCtsFlowControl = before.dtrDsrFlowControl = before.dcdOutputFlowControl = true;
  const TerminalAttributes none = attributesFor({.baudRate = 4800}, before);
  EXPECT_FALSE(none.rtsCtsFlowControl || none.dtrDsrFlowControl || none.dcdOutputFlowControl);
  EXPECT_EQ(none.speed, 4800U);

  EXPECT_TRUE(attributesFor({.usesRTSCTSFlowControl = true}, {}).rtsCtsFlowControl);
  EXPECT_TRUE(attributesFor({.usesDTRDSRFlowControl = true}, {}).dtrDsrFlowControl);
  EXPECT_TRUE(attributesFor({.usesDCDOutputFlowControl = true}, {}).dcdOutputFlowControl);
}

TEST(LineSettingsTest, BothDirectionsHaveOneSpeed) {
  TerminalAttributes foreign;
  foreign.inputSpeed = 7777;
  EXPECT_EQ(attributesFor({.baudRate = 4800}, foreign).inputSpeed, 0U);
}

}  // namespace
}  // namespace tarsil::detail
