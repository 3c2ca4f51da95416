#include "tarsil/serial/detail/OpenLine.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "doubles/ScriptedTerminal.hpp"
#include "tests/helpers/hex.hpp"

namespace tarsil::detail {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Call = doubles::ScriptedTerminal::Call;

class OpenLineTest : public ::testing::Test {
 protected:
  std::shared_ptr<OpenLine> opened() {
    return std::make_shared<OpenLine>(terminal, *terminal->open("/dev/tty"));
  }

  const std::shared_ptr<doubles::ScriptedTerminal> terminal = std::make_shared<doubles::ScriptedTerminal>();
  std::shared_ptr<OpenLine> line = opened();
};

TEST_F(OpenLineTest, AnswersWhetherItSucceeded) {
  terminal->failNext(Call::clearStatusFlags, EPERM);
  EXPECT_EQ(line->clearStatusFlags().error(), EPERM);
  EXPECT_TRUE(line->clearStatusFlags());
}

TEST_F(OpenLineTest, ReadAndWriteAnswerACountOrTheErrorNumber) {
  EXPECT_EQ(line->write(hex("01 02 03")), 3U);
  terminal->takeNextWrite(0);
  EXPECT_EQ(line->write(hex("01")), 0U);
  terminal->failNext(Call::write, EIO);
  EXPECT_EQ(line->write(hex("01")).error(), EIO);

  Bytes buffer(8);
  terminal->deliver(hex("aa bb"));
  EXPECT_EQ(line->read(buffer.data(), buffer.size()), 2U);
  EXPECT_EQ(line->read(buffer.data(), buffer.size()).error(), EAGAIN);
}

TEST_F(OpenLineTest, TellsHowMuchInputThereIs) {
  EXPECT_EQ(line->heldInput(), 0U);
  terminal->deliver(hex("aa bb"));
  EXPECT_EQ(line->heldInput(), 2U);
  Bytes buffer(2);
  EXPECT_EQ(line->read(buffer.data(), buffer.size()), 2U);
  EXPECT_EQ(line->heldInput(), 0U);
}

TEST_F(OpenLineTest, RestoresAndClosesWhenTheLastShareGoes) {
  EXPECT_TRUE(line->saveAttributes());
  terminal->forgetCalls();
  line.reset();
  EXPECT_THAT(terminal->calls(),
              ElementsAre(Call::getAttributes, Call::setAttributes, Call::setAttributes, Call::close));
}

TEST_F(OpenLineTest, RestoresAndClosesOnce) {
  EXPECT_TRUE(line->saveAttributes());
  EXPECT_THAT(line->restoreAttributes(), IsEmpty());
  EXPECT_TRUE(line->close());
  terminal->forgetCalls();
  EXPECT_THAT(line->restoreAttributes(), IsEmpty());
  EXPECT_TRUE(line->close());
  line.reset();
  EXPECT_THAT(terminal->calls(), IsEmpty());
}

TEST_F(OpenLineTest, RestoresWhatWasSavedAfterFlowControlIsOff) {
  EXPECT_TRUE(line->saveAttributes());
  TerminalAttributes changed;
  changed.speed = 4800;
  changed.rtsCtsFlowControl = changed.dtrDsrFlowControl = changed.dcdOutputFlowControl = true;
  EXPECT_TRUE(line->setAttributes(changed));
  line->restoreAttributes();
  const auto applied = terminal->applied();
  ASSERT_EQ(applied.size(), 3U);
  EXPECT_EQ(applied[1].attributes.speed, 4800U);
  EXPECT_FALSE(applied[1].attributes.rtsCtsFlowControl || applied[1].attributes.dtrDsrFlowControl ||
               applied[1].attributes.dcdOutputFlowControl);
  EXPECT_EQ(applied[2].attributes.speed, 0U);
  EXPECT_EQ(applied[2].when, Terminal::Apply::afterOutputDrains);
}

// A setting that the client asks for while another thread closes the port.
TEST_F(OpenLineTest, TakesNoSettingsAndNoBytesOnceRestored) {
  EXPECT_TRUE(line->saveAttributes());
  line->restoreAttributes();
  terminal->forgetCalls();
  TerminalAttributes late;
  late.speed = 4800;
  EXPECT_EQ(line->setAttributes(late).error(), OpenLine::closedMeanwhile);
  EXPECT_EQ(line->setSpecialSpeed(late).error(), OpenLine::closedMeanwhile);
  EXPECT_EQ(line->write(hex("01")).error(), OpenLine::closedMeanwhile);
  EXPECT_THAT(terminal->calls(), IsEmpty());
  EXPECT_EQ(terminal->attributes().speed, 0U);
}

TEST_F(OpenLineTest, WaitsForOutputThoughThereIsNothingToPutBack) {
  line->restoreAttributes();
  ASSERT_EQ(terminal->applied().size(), 1U);
  EXPECT_EQ(terminal->applied()[0].when, Terminal::Apply::afterOutputDrains);
}

TEST_F(OpenLineTest, TellsWhatFailedWhileRestoring) {
  EXPECT_TRUE(line->saveAttributes());
  terminal->failNext(Call::getAttributes, EINTR);
  terminal->failNext(Call::setAttributes, EINVAL);
  EXPECT_THAT(line->restoreAttributes(), ElementsAre(EINTR, EINVAL));
}

TEST_F(OpenLineTest, DoesNotRestoreADeviceThatVanished) {
  EXPECT_TRUE(line->saveAttributes());
  terminal->vanish();
  EXPECT_EQ(line->write(hex("01")).error(), ENXIO);
  terminal->forgetCalls();
  EXPECT_THAT(line->restoreAttributes(), IsEmpty());
  EXPECT_THAT(terminal->calls(), IsEmpty());
  EXPECT_TRUE(line->close());
}

TEST_F(OpenLineTest, CallsAfterAGoodEndSayThatItEnded) {
  EXPECT_TRUE(line->close());
  terminal->forgetCalls();
  EXPECT_EQ(line->write(hex("01")).error(), OpenLine::closedMeanwhile);
  EXPECT_EQ(line->read(nullptr, 0).error(), OpenLine::closedMeanwhile);
  EXPECT_EQ(line->getModemLines().error(), OpenLine::closedMeanwhile);
  EXPECT_EQ(line->getAttributes().error(), OpenLine::closedMeanwhile);
  EXPECT_THAT(terminal->calls(), IsEmpty());
}

TEST_F(OpenLineTest, CallsAfterABadEndSayThatTheDescriptorIsBad) {
  terminal->failNext(Call::close, EIO);
  EXPECT_EQ(line->close().error(), EIO);
  terminal->forgetCalls();
  EXPECT_EQ(line->write(hex("01")).error(), EBADF);
  EXPECT_TRUE(line->close());
  EXPECT_THAT(terminal->calls(), IsEmpty());
}

TEST_F(OpenLineTest, WhoeverComesSecondToRestoreWaitsForTheFirst) {
  EXPECT_TRUE(line->saveAttributes());
  const auto one = std::async(std::launch::async, [this] { return line->restoreAttributes(); });
  line->restoreAttributes();
  EXPECT_EQ(terminal->count(Call::setAttributes), 2U);
  one.wait();
}

// Writers and closers of line after line: a write that meets the end may not reach the descriptor.
TEST_F(OpenLineTest, NoCallReachesAClosedDescriptor) {
  for (int round = 0; round < 50; ++round) {
    std::atomic<bool> ended = false;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 3; ++writer) {
      writers.emplace_back([&] {
        while (!ended) {
          if (line->write(hex("01")).error() == OpenLine::closedMeanwhile) return;
        }
      });
    }
    line->restoreAttributes();
    EXPECT_TRUE(line->close());
    ended = true;
    for (std::thread& writer : writers) writer.join();
    line = opened();
  }
  EXPECT_EQ(terminal->strayCalls(), 0U);
}

}  // namespace
}  // namespace tarsil::detail
