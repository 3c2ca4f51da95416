#include "tarsil/drivers/ergometer/ErgolineP10.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ErgometerTest.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using ErgolineP10Test = ErgometerTest<ErgolineP10>;

TEST_F(ErgolineP10Test, StartsWithASmallLetter) {
  ergometer->startDeivce();
  EXPECT_THAT(sent(), ElementsAre("s\r"));
}

TEST_F(ErgolineP10Test, ReportsToTheSharedManagersDelegate) {
  receive("B120\r");
  EXPECT_THAT(managerHost.calls(), ElementsAre(ergometerPower(120)));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(ErgolineP10Test, ReadsEveryValueFromTheStartOfAllItEverReceived) {
  receive("B120\r");
  receive("n060\r");
  EXPECT_THAT(managerHost.calls(), ElementsAre(ergometerPower(120), ergometerPower(120), ergometerRpm(120)));
}

TEST_F(ErgolineP10Test, ReportsInAFixedOrder) {
  receive("U080\rOnB");
  EXPECT_THAT(managerHost.calls(),
              ElementsAre(ergometerPower(80), ergometerRpm(80), bloodPressure(80, 80, 0)));
}

TEST_F(ErgolineP10Test, RepeatsAllReportsForEveryReception) {
  receive("B120\r");
  receiveByteByByte("n06");
  EXPECT_THAT(managerHost.calls(),
              ElementsAre(ergometerPower(120), ergometerPower(120), ergometerRpm(120), ergometerPower(120),
                          ergometerRpm(120), ergometerPower(120), ergometerRpm(120)));
}

TEST_F(ErgolineP10Test, ReportsNothingBeforeTheFirstCarriageReturn) {
  receive("B12");
  receive("0n060OU");
  EXPECT_THAT(managerHost.calls(), IsEmpty());
  receive("\r");
  EXPECT_THAT(managerHost.calls(),
              ElementsAre(ergometerPower(120), ergometerRpm(120), bloodPressure(120, 120, 0)));
}

TEST_F(ErgolineP10Test, IgnoresTextWithoutAMarker) {
  receive("120\r");
  receive("abc\r");
  EXPECT_THAT(managerHost.calls(), IsEmpty());
}

TEST_F(ErgolineP10Test, StopsTheProcessForAValueThatIsNoNumber) {
  EXPECT_DEATH(receive("B80\r"), "the field .80\r. is no number");
  EXPECT_DEATH(receive("B\r"), "the field .* is no number");
  EXPECT_DEATH(receive("n 60\r"), "the field . 60. is no number");
  EXPECT_DEATH(receive("\rB"), "the field .B. is no number");
}

TEST_F(ErgolineP10Test, ReadsNoValueThatNobodyListensFor) {
  managerHost.answerOnly({RecordingHost::Selector::onReceivedErgometerRpmWithRpm});
  receive("B0x\r");
  EXPECT_THAT(managerHost.calls(), IsEmpty());
  StressECGDeviceManager::share().delegate = nullptr;
  receive("n");
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(ErgolineP10Test, PrintsTheBytesAfterProcessingThem) {
  managerHost.onCall([&](const RecordedCall&) { EXPECT_THAT(printed.diagnostic(), IsEmpty()); });
  receive("B120\r");
  EXPECT_THAT(managerHost.calls(), ElementsAre(ergometerPower(120)));
  EXPECT_THAT(printed.diagnostic(), ElementsAre("423132300d"));
}

TEST_F(ErgolineP10Test, PrintsBytesThatAreNoText) {
  receive("\xFF\r");
  EXPECT_THAT(printed.diagnostic(), ElementsAre("ff0d"));
  EXPECT_FALSE(ergometer->result.contains('\r'));
}

TEST_F(ErgolineP10Test, CountsTheReplyOfACallThatBypassesThePort) {
  ergometer->processReply("B120");
  ergometer->processReply("\r");
  ergometer->processReply("");
  EXPECT_THAT(managerHost.calls(), ElementsAre(ergometerPower(120), ergometerPower(120)));
}

}  // namespace
}  // namespace tarsil
