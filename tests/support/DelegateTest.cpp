#include "tarsil/support/Delegate.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <typeinfo>

namespace tarsil {
namespace {

/// A protocol of three optional methods.
class Protocol {
 public:
  enum class Selector { opened, failed, finished };

  virtual ~Protocol() = default;
  virtual void opened() {}
  virtual void failed(int /*code*/) {}
  virtual void finished() {}

  template <class Host>
  static constexpr AnsweredSelectors<Protocol> overriddenBy() {
    using enum Selector;
    return AnsweredSelectors<Protocol>{}
        .set(
            opened, !requires { requires Inherits<&Host::opened, &Protocol::opened>; })
        .set(
            failed, !requires { requires Inherits<&Host::failed, &Protocol::failed>; })
        .set(
            finished, !requires { requires Inherits<&Host::finished, &Protocol::finished>; });
  }
};

using Selector = Protocol::Selector;

struct Answers {
  bool opened;
  bool failed;
  bool finished;
  bool operator==(const Answers&) const = default;
};

template <class Host>
Answers answersOf(const Host& host) {
  return {hostRespondsTo<Host, Protocol>(host, Selector::opened),
          hostRespondsTo<Host, Protocol>(host, Selector::failed),
          hostRespondsTo<Host, Protocol>(host, Selector::finished)};
}

TEST(DelegateTest, AHostThatOverridesNothingAnswersNothing) {
  class Host : public Protocol {};
  EXPECT_EQ(answersOf(Host()), (Answers{false, false, false}));
}

TEST(DelegateTest, AHostAnswersExactlyWhatItOverrides) {
  class Host : public Protocol {
   public:
    void opened() override {}
    void finished() override {}
  };
  EXPECT_EQ(answersOf(Host()), (Answers{true, false, true}));
}

TEST(DelegateTest, APrivateOverrideIsAnAnswer) {
  class Host : public Protocol {
    void failed(int /*code*/) override {}
  };
  EXPECT_EQ(answersOf(Host()), (Answers{false, true, false}));
}

TEST(DelegateTest, AProtectedOverrideIsAnAnswer) {
  class Host : public Protocol {
   protected:
    void failed(int /*code*/) override {}
  };
  EXPECT_EQ(answersOf(Host()), (Answers{false, true, false}));
}

TEST(DelegateTest, AnInheritedOverrideIsAnAnswer) {
  class Base : public Protocol {
   public:
    void opened() override {}
  };
  class Host : public Base {
   public:
    void failed(int /*code*/) override {}
  };
  EXPECT_EQ(answersOf(Host()), (Answers{true, true, false}));
  EXPECT_EQ(answersOf<Base>(Host()), (Answers{true, false, false})) << "the static type decides";
}

TEST(DelegateTest, AnInheritedPrivateOverrideIsAnAnswer) {
  class Base : public Protocol {
    void opened() override {}
  };
  class Host : public Base {};
  EXPECT_EQ(answersOf(Host()), (Answers{true, false, false}));
}

TEST(DelegateTest, AFinalOverrideIsAnAnswer) {
  class Host final : public Protocol {
   public:
    void finished() final {}
  };
  EXPECT_EQ(answersOf(Host()), (Answers{false, false, true}));
}

TEST(DelegateTest, AUsingDeclarationIsNoAnswer) {
  class Host : public Protocol {
   public:
    using Protocol::opened;
  };
  EXPECT_EQ(answersOf(Host()), (Answers{false, false, false}));
}

class RunTimeHost : public Protocol {
 public:
  bool respondsTo(Selector selector) const { return answers.contains(selector); }
  AnsweredSelectors<Protocol> answers;
  void opened() override {}
};

TEST(DelegateTest, AHostThatAnswersAtRunTimeDecidesForItself) {
  RunTimeHost host;
  EXPECT_EQ(answersOf(host), (Answers{false, false, false})) << "whatever it overrides";
  host.answers.set(Selector::failed);
  EXPECT_EQ(answersOf(host), (Answers{false, true, false}));
  host.answers.set(Selector::failed, false);
  EXPECT_EQ(answersOf(host), (Answers{false, false, false}));
}

TEST(DelegateTest, AHostIsAskedThroughAnyPointerToTheProtocol) {
  RunTimeHost host;
  host.answers.set(Selector::finished);
  const Protocol& protocol = host;
  EXPECT_TRUE((hostRespondsTo<RunTimeHost, Protocol>(protocol, Selector::finished)));
}

TEST(DelegateDeathTest, ClassesAreCalledByTheirNames) {
  EXPECT_DEATH(detail::stopForDelegateOfNoSuchClass(typeid(RunTimeHost), typeid(std::runtime_error)),
               "a delegate of class tarsil::.*::RunTimeHost is no std::runtime_error\n");
}

TEST(AnsweredSelectorsTest, KeepsOneBitASelector) {
  AnsweredSelectors<Protocol> answered;
  answered.set(Selector::opened).set(Selector::finished);
  EXPECT_TRUE(answered.contains(Selector::opened));
  EXPECT_FALSE(answered.contains(Selector::failed));
  EXPECT_TRUE(answered.contains(Selector::finished));
}

}  // namespace
}  // namespace tarsil
