#include "tarsil/drivers/ergometer/ErgosanaP10.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ErgometerTest.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using ErgosanaP10Test = ErgometerTest<ErgosanaP10>;

TEST_F(ErgosanaP10Test, HasTwoInertFields) {
  EXPECT_EQ(ErgosanaP10().rp, 0.0F);
  EXPECT_EQ(ErgosanaP10().rs, 0.0F);
  EXPECT_EQ(ergometer->rp, 0.0F);
  EXPECT_EQ(ergometer->rs, 0.0F);
}

TEST_F(ErgosanaP10Test, StartsWithACapitalLetter) {
  ergometer->startDeivce();
  EXPECT_THAT(sent(), ElementsAre("S\r"));
  EXPECT_FALSE(ergometer->isBPCommand);
}

TEST_F(ErgosanaP10Test, ReportsPowerOncePerReplyToItsOwnHost) {
  receive("B120\r");
  receive("B080\r");
  EXPECT_THAT(host.calls(), ElementsAre(ergometerPower(120), ergometerPower(80)));
  EXPECT_THAT(managerHost.calls(), IsEmpty());
}

TEST_F(ErgosanaP10Test, ReportsThePedalRateOncePerReplyToItsOwnHost) {
  receive("n060\r");
  receive("n061\r");
  EXPECT_THAT(host.calls(), ElementsAre(ergometerRpm(60), ergometerRpm(61)));
  EXPECT_THAT(managerHost.calls(), IsEmpty());
}

TEST_F(ErgosanaP10Test, LosesMarkersThatShareATextWithAPower) {
  receive("B120\rn060\rO110\rU070\r");
  EXPECT_THAT(host.calls(), ElementsAre(ergometerPower(120)));
  EXPECT_EQ(ergometer->p10SBP, std::nullopt);
  EXPECT_EQ(ergometer->p10DBP, std::nullopt);
}

TEST_F(ErgosanaP10Test, LosesPressuresThatShareATextWithAPedalRate) {
  receive("O110\r");
  receive("n060\rU070\r");
  EXPECT_THAT(host.calls(), ElementsAre(ergometerRpm(110)));
  EXPECT_EQ(ergometer->p10SBP, 110.0F);
  EXPECT_EQ(ergometer->p10DBP, std::nullopt);
  EXPECT_FALSE(ergometer->result.contains('\r'));
}

TEST_F(ErgosanaP10Test, EmptiesTheTextAfterTheHostHasHeardOfIt) {
  std::vector<std::string> fields;
  host.onCall([&](const RecordedCall&) { fields.push_back(ergometer->result.field()); });
  receive("B120\r");
  receive("n060\r");
  EXPECT_THAT(fields, ElementsAre("120", "060"));
  EXPECT_EQ(ergometer->result.field(), "范围越界");
}

TEST_F(ErgosanaP10Test, LetsTheHostDropItWithinAReport) {
  const std::weak_ptr<ErgosanaP10> dropped = ergometer;
  host.onCall([&](const RecordedCall&) { ergometer.reset(); });
  receive("B120\r");
  EXPECT_THAT(host.calls(), ElementsAre(ergometerPower(120)));
  EXPECT_TRUE(dropped.expired());
}

TEST_F(ErgosanaP10Test, StartsAnewBehindAnEmptiedText) {
  receive("B120\rn0");
  receive("60\r");
  EXPECT_THAT(host.calls(), ElementsAre(ergometerPower(120)));
  receive("x");
  EXPECT_EQ(ergometer->result.field(), "0\rx") << "the text now begins with \"60\"";
}

TEST_F(ErgosanaP10Test, KeepsTextWithoutAMarker) {
  receive("x120");
  receive("\r");
  EXPECT_THAT(host.calls(), IsEmpty());
  receive("B");
  EXPECT_THAT(host.calls(), ElementsAre(ergometerPower(120)));
}

TEST_F(ErgosanaP10Test, EmptiesTheTextThoughNobodyListens) {
  ergometer->kiv_delegate = nullptr;
  receive("Bxyz\r");
  EXPECT_FALSE(ergometer->result.contains('B'));
  ergometer->kiv_delegate = host;
  host.answerAllBut({RecordingHost::Selector::onReceivedErgometerRpmWithRpm});
  receive("nxyz\r");
  EXPECT_FALSE(ergometer->result.contains('n'));
  receive("B080\r");
  EXPECT_THAT(host.calls(), ElementsAre(ergometerPower(80)));
}

TEST_F(ErgosanaP10Test, StopsTheProcessForAValueThatIsNoNumber) {
  EXPECT_DEATH(receive("B80\r"), "the field .80\r. is no number");
  EXPECT_DEATH(receive("n\r"), "the field .* is no number");
}

TEST_F(ErgosanaP10Test, StopsTheProcessWhenAPowerComesBeforeTheRequestedPressures) {
  ergometer->startBP();
  EXPECT_DEATH(receive("B120\r"), "both blood pressures");
}

TEST_F(ErgosanaP10Test, ReportsAPressureToTheSharedManagersDelegateAndKeepsItsText) {
  receive("O120\r");
  receive("U080\r");
  receive("x");
  EXPECT_THAT(managerHost.calls(), ElementsAre(bloodPressure(120, 120, 0), bloodPressure(120, 120, 0)));
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(ErgosanaP10Test, TakesPowerFromTheStartOfATextThatAPressureBegan) {
  receive("O120\r");
  receive("B090\r");
  EXPECT_THAT(host.calls(), ElementsAre(ergometerPower(120)));
  receive("B090\r");
  EXPECT_THAT(host.calls(), ElementsAre(ergometerPower(120), ergometerPower(90)));
}

TEST_F(ErgosanaP10Test, PrintsNothingOfWhatItReceives) {
  receive("B120\r");
  receive("\xFF\r");
  EXPECT_THAT(printed.diagnostic(), IsEmpty());
  EXPECT_THAT(printed.fixed(), IsEmpty());
}

}  // namespace
}  // namespace tarsil
