#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

#include "simulators/devices/acceptedReply.hpp"
#include "tarsil/drivers/treadmill/LodeOEMTreadmill.hpp"
#include "tarsil/drivers/treadmill/LodeTreadmill.hpp"
#include "tarsil/drivers/treadmill/TrackMaster.hpp"
#include "tarsil/guard/eventText.hpp"
#include "tests/cli-report/ScratchFolder.hpp"
#include "tests/drivers/treadmill/TreadmillTest.hpp"

namespace tarsil::cli {
namespace {

/// Whatever a driver reports, as the program shows it, each once.
struct ErrorListener : KivStressPortDelegate {
  void onErrorWithCode(const std::string& code, const std::string& details) override {
    texts.insert(textOf({.what = DeviceRefused{code, details}}, StressDeviceType::Treadmill).text);
  }

  std::set<std::string> texts;
};

/// The model's list in the manual.
std::set<std::string> listed(const std::string& model) {
  const std::string page = textOf(TARSIL_SOURCE_FOLDER "/docs/man/tarsil.1");
  const std::string head = "\n.TP\n.B " + model + "\n.nf\n";
  const std::size_t begin = page.find(".SH DEVICE ERRORS\n");
  const std::size_t list = page.find(head, begin) + head.size();
  std::set<std::string> texts;
  for (const std::string& line : linesOf(page.substr(list, page.find(".fi\n", list) - list)))
    texts.insert(line);
  return texts;
}

template <class Model>
class ManualErrorsTest : public TreadmillTest<Model> {
 protected:
  ManualErrorsTest() { this->treadmill->kiv_delegate = listener_; }

  const std::shared_ptr<ErrorListener> listener_ = std::make_shared<ErrorListener>();
};

using LodeTreadmillErrorsTest = ManualErrorsTest<LodeTreadmill>;
using LodeOEMTreadmillErrorsTest = ManualErrorsTest<LodeOEMTreadmill>;
using TrackMasterErrorsTest = ManualErrorsTest<TrackMaster>;

// Every status after every command; those without words have the same ones.
TEST_F(LodeTreadmillErrorsTest, AreInTheManual) {
  constexpr int commandCount = 21;
  constexpr int accepted = 0x80;
  for (int command = 0; command < commandCount; ++command) {
    for (int status = 0; status < 256; ++status) {
      if (status == accepted) continue;
      treadmill->currentCommand = static_cast<LodeTreadmill::Command>(command);
      port.deliverByteByByte(simulators::acceptedReply(0x01, static_cast<std::uint8_t>(status), {}));
    }
  }
  const std::string noWords = ": the device refused, and says no more";
  std::erase_if(listener_->texts, [&](const std::string& text) { return text.ends_with(noWords); });
  EXPECT_EQ(listener_->texts, listed("LodeTreadmill"));
  EXPECT_THAT(textOf(TARSIL_SOURCE_FOLDER "/docs/man/tarsil.1"),
              testing::HasSubstr("\"error CODE" + noWords + "\""));
}

TEST_F(LodeOEMTreadmillErrorsTest, AreInTheManual) {
  port.deliverByteByByte(hex("AC 01 EF 00 00 00 00"));
  EXPECT_EQ(listener_->texts, listed("LodeOEMTreadmill"));
}

TEST_F(TrackMasterErrorsTest, AreInTheManual) {
  treadmill->setLoad(20, 30);
  port.deliver(hex("BE"));
  port.deliver(hex("BF"));
  EXPECT_EQ(listener_->texts, listed("TrackMaster"));
}

}  // namespace
}  // namespace tarsil::cli
