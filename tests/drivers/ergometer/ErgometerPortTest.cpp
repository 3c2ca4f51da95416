// What every ergometer does with its port.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "ErgometerTest.hpp"
#include "tarsil/drivers/ergometer/ErgolineP10.hpp"
#include "tarsil/drivers/ergometer/ErgometricsP3.hpp"
#include "tarsil/drivers/ergometer/ErgosanaP10.hpp"
#include "tarsil/drivers/ergometer/LodeErgometer38K4.hpp"

namespace tarsil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

template <class Model>
using ErgometerPortTest = ErgometerTest<Model>;

using Models = testing::Types<ErgolineP10, ErgosanaP10, ErgometricsP3, LodeErgometer38K4>;
TYPED_TEST_SUITE(ErgometerPortTest, Models);

TYPED_TEST(ErgometerPortTest, BecomesItsPortsDelegate) {
  EXPECT_EQ(this->ergometer->serialPort(), this->port.port());
  EXPECT_EQ(this->ergometer->protPath, this->port->path());
  EXPECT_EQ(this->port->delegate().lock().get(), this->ergometer.get());
  this->ergometer->setSerialPort(nullptr);
  EXPECT_EQ(this->ergometer->protPath, std::nullopt);
  EXPECT_EQ(this->port->delegate().lock().get(), this->ergometer.get()) << "nobody has taken the port over";
}

TYPED_TEST(ErgometerPortTest, TellsItsOwnHostThatThePortOpenedAndVanished) {
  this->port.close();
  this->port.open();
  EXPECT_THAT(this->host.calls(), ElementsAre(portWasOpened()));
  this->port.remove();
  EXPECT_THAT(this->host.calls(), ElementsAre(portWasOpened(), portWasRemoved()));
  EXPECT_THAT(this->managerHost.calls(), IsEmpty());
}

TYPED_TEST(ErgometerPortTest, PrintsPortErrorsOnly) {
  this->port.terminal().failNext(doubles::ScriptedTerminal::Call::write, EIO);
  this->ergometer->requestBP();
  this->port.advance({});
  EXPECT_THAT(this->printed.diagnostic(), SizeIs(1));
  EXPECT_THAT(this->host.calls(), IsEmpty());
  EXPECT_THAT(this->managerHost.calls(), IsEmpty());
}

TYPED_TEST(ErgometerPortTest, NeedsNoHost) {
  this->ergometer->kiv_delegate = nullptr;
  this->port.close();
  this->port.open();
  this->port.remove();
  EXPECT_THAT(this->host.calls(), IsEmpty());
}

}  // namespace
}  // namespace tarsil
