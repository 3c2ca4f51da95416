#pragma once

#include "tarsil/support/cpp20.hpp"

#include <concepts>
#include <type_traits>

namespace tarsil {

/// Which of a protocol's optional methods an object answers: one bit per value of `Protocol::Selector`.
template <class Protocol>
class AnsweredSelectors {
 public:
  using Selector = typename Protocol::Selector;

  constexpr AnsweredSelectors& set(Selector selector, bool answered = true) {
    const unsigned bit = 1U << static_cast<unsigned>(selector);
    bits_ = answered ? (bits_ | bit) : (bits_ & ~bit);
    return *this;
  }
  constexpr bool contains(Selector selector) const {
    return ((bits_ >> static_cast<unsigned>(selector)) & 1U) != 0;
  }

 private:
  unsigned bits_ = 0;
};

/// True when the method that `OwnMember` names is the protocol's own: the type of `&Host::method` then names
/// the protocol, not the host's class. Ask it inside a requires-expression: a private override cannot be
/// named from outside, which says that it is one.
template <auto OwnMember, auto ProtocolMember>
concept Inherits = std::same_as<decltype(OwnMember), decltype(ProtocolMember)>;

/// An object that decides at run time which selectors it answers (a recorder, a bridge to another language)
/// declares this member; every other object answers exactly the methods that its class overrides.
template <class Host, class Protocol>
concept AnswersAtRunTime = requires(const Host& host, typename Protocol::Selector selector) {
  { host.respondsTo(selector) } -> std::same_as<bool>;
};

/// Answers for a host of static type `Host`, whatever pointer to the protocol it is later reached through.
template <class Host, class Protocol>
bool hostRespondsTo(const Protocol& host, typename Protocol::Selector selector) {
  if constexpr (AnswersAtRunTime<Host, Protocol>) {
    return static_cast<const Host&>(host).respondsTo(selector);
  } else {
    static_assert(!std::same_as<Host, Protocol>,
                  "hand the delegate over as its own class: a pointer to the protocol no longer knows what "
                  "it overrides");
    static constexpr AnsweredSelectors<Protocol> answered = Protocol::template overriddenBy<Host>();
    return answered.contains(selector);
  }
}

/// False when no host of static type `Host` ever answers the selector. Needs no host, so that another thread
/// than the host's own can ask without holding it.
template <class Host, class Protocol>
bool hostMayRespondTo(typename Protocol::Selector selector) {
  if constexpr (AnswersAtRunTime<Host, Protocol>) {
    return true;
  } else {
    static constexpr AnsweredSelectors<Protocol> answered = Protocol::template overriddenBy<Host>();
    return answered.contains(selector);
  }
}

}  // namespace tarsil
