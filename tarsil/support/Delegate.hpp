#pragma once

#include "tarsil/support/cpp20.hpp"

#include <array>
#include <concepts>
#include <cstddef>
#include <memory>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>

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
/// declares this member, virtual where it has derived classes; every other object answers exactly the methods
/// that its class overrides.
template <class Host, class Protocol>
concept AnswersAtRunTime = requires(const Host& host, typename Protocol::Selector selector) {
  { host.respondsTo(selector) } -> std::same_as<bool>;
};

/// Whether `Host` overrides the method. For `respondsTo` of a class that nobody else can name:
/// `bool respondsTo(Selector selector) const override { return overrides<Hidden,
/// KivStressPortDelegate>(selector); }`
template <class Host, class Protocol>
bool overrides(typename Protocol::Selector selector) {
  static constexpr AnsweredSelectors<Protocol> answered = Protocol::template overriddenBy<Host>();
  return answered.contains(selector);
}

/// Answers for a host of static type `Host`, whatever pointer to the protocol it is later reached through.
template <class Host, class Protocol>
bool hostRespondsTo(const Protocol& host, typename Protocol::Selector selector) {
  if constexpr (AnswersAtRunTime<Host, Protocol>) {
    return static_cast<const Host&>(host).respondsTo(selector);
  } else {
    return overrides<Host, Protocol>(selector);
  }
}

/// False when no host of static type `Host` ever answers the selector. Needs no host, so that another thread
/// than the host's own can ask without holding it.
template <class Host, class Protocol>
bool hostMayRespondTo(typename Protocol::Selector selector) {
  return AnswersAtRunTime<Host, Protocol> || overrides<Host, Protocol>(selector);
}

/// A delegate and the class whose overrides it answers. `answering` makes one.
template <class Host>
struct Answering {
  std::shared_ptr<Host> host;
};

namespace detail {
[[noreturn]] void stopForDelegateOfAnotherClass(const std::type_info& own,
                                                const std::type_info& handedOverAs);
[[noreturn]] void stopForDelegateOfNoSuchClass(const std::type_info& own, const std::type_info& said);
}  // namespace detail

/// Hands over, as a `Host`, a delegate whose pointer has another type: that of a base, or the protocol. It
/// answers what `Host` overrides; overrides of a class derived from `Host` are not looked for. Null stays
/// null; what is no `Host` stops the process. Any thread.
///
///     device->kiv_delegate = tarsil::answering<Window>(makeHost());
template <class Host, class Base>
Answering<Host> answering(const std::shared_ptr<Base>& pointer) {
  auto host = std::dynamic_pointer_cast<Host>(pointer);
  if (pointer && !host) {
    const Base& given = *pointer;
    detail::stopForDelegateOfNoSuchClass(typeid(given), typeid(Host));
  }
  return {std::move(host)};
}

/// A reference to a delegate, strong or weak as `Pointer` is, that remembers which methods the delegate's
/// class overrides. Made from a std::shared_ptr to that class; where the pointer's type is another one,
/// overrides would be lost in silence, so that stops the process, and `answering` says which class is meant.
template <class Protocol, template <class> class Pointer>
class DelegateRef {
 public:
  using Selector = typename Protocol::Selector;

  DelegateRef() = default;
  DelegateRef(std::nullptr_t) {}

  /// Implicit, so that a host writes `device->kiv_delegate = std::make_shared<Host>();`.
  template <std::derived_from<Protocol> Host>
  DelegateRef(const std::shared_ptr<Host>& host) : DelegateRef(Answering<Host>{host}) {
    static_assert(
        !std::same_as<Host, Protocol>,
        "hand the delegate over as its own class: a pointer to the protocol no longer knows what it "
        "overrides, tarsil::answering<Host>(pointer) says it");
    if constexpr (!AnswersAtRunTime<Host, Protocol>) {
      if (host && typeid(*host.get()) != typeid(Host))
        detail::stopForDelegateOfAnotherClass(typeid(*host.get()), typeid(Host));
    }
  }
  template <std::derived_from<Protocol> Host>
  DelegateRef(const Answering<Host>& said)
      : host_(said.host),
        respondsTo_(&hostRespondsTo<Host, Protocol>),
        mayRespondTo_(&hostMayRespondTo<Host, Protocol>) {}

  // Refused, with a sentence in place of a list of what would have been accepted.
  template <class Host>
  DelegateRef(Host* /*host*/) {
    static_assert(!std::is_object_v<Host>,
                  "hand the delegate over as a std::shared_ptr, as std::make_shared makes one: a raw pointer "
                  "does not say who keeps it");
  }
  template <class Host, class Deleter>
  DelegateRef(const std::unique_ptr<Host, Deleter>& /*host*/) {
    static_assert(
        !std::is_object_v<Host>,
        "hand the delegate over as a std::shared_ptr, as std::make_shared makes one: the library keeps "
        "it beside the host");
  }
  template <class Host>
  requires(!std::derived_from<Host, Protocol>) DelegateRef(const std::shared_ptr<Host>& /*host*/) {
    static_assert(std::derived_from<Host, Protocol>,
                  "the delegate's class must derive publicly from the protocol: `struct Host : "
                  "tarsil::KivStressPortDelegate`");
  }

 protected:
  // Both only while `host_` is there.
  bool answers(const Protocol& host, Selector selector) const { return respondsTo_(host, selector); }
  bool mayAnswer(Selector selector) const { return mayRespondTo_(selector); }

  Pointer<Protocol> host_;

 private:
  bool (*respondsTo_)(const Protocol&, Selector) = nullptr;
  bool (*mayRespondTo_)(Selector) = nullptr;
};

// A protocol names its optional methods once, in a macro LIST(METHOD) that calls METHOD with each name, and
// with what else a protocol needs of it. Its selectors, their names and the look at what a class overrides
// are made from the list by TARSIL_OPTIONAL_METHODS.
#define TARSIL_SELECTOR(method, ...) method,
#define TARSIL_SELECTOR_NAME(method, ...) std::string_view(#method),
#define TARSIL_SET_WHEN_OVERRIDDEN(method, ...) \
  .set(                                         \
      Selector::method, !requires { requires Inherits<&Host::method, &Own::method>; })
#define TARSIL_OPTIONAL_METHODS(Protocol, LIST)                          \
  enum class Selector { LIST(TARSIL_SELECTOR) };                         \
  static constexpr std::array selectorNames{LIST(TARSIL_SELECTOR_NAME)}; \
  template <class Host>                                                  \
  static constexpr AnsweredSelectors<Protocol> overriddenBy() {          \
    using Own = Protocol;                                                \
    return AnsweredSelectors<Protocol> {}                                \
    LIST(TARSIL_SET_WHEN_OVERRIDDEN);                                    \
  }

}  // namespace tarsil
