#include "tarsil/support/Delegate.hpp"

#include <cxxabi.h>

#include <cstdlib>
#include <string>

#include "tarsil/support/process.hpp"

namespace tarsil::detail {
namespace {

std::string nameOf(const std::type_info& type) {
  int status = 0;
  char* const demangled = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
  std::string name = demangled != nullptr ? demangled : type.name();
  std::free(demangled);  // NOLINT(cppcoreguidelines-no-malloc)
  return name;
}

}  // namespace

void stopForDelegateOfAnotherClass(const std::type_info& own, const std::type_info& handedOverAs) {
  fatalError(
      "a delegate of class " + nameOf(own) + " was handed over as " + nameOf(handedOverAs) +
      ", which does not tell what its own class overrides: hand it over as its own class, or say which "
      "one with tarsil::answering<Host>(pointer)");
}

void stopForDelegateOfNoSuchClass(const std::type_info& own, const std::type_info& said) {
  fatalError("a delegate of class " + nameOf(own) + " is no " + nameOf(said));
}

}  // namespace tarsil::detail
