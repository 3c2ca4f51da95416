// In C++ alone: a source that knows both languages cannot catch what C++ throws on every runtime.

#include "Tarsil/detail/thrown.hpp"

#include <stdexcept>

namespace tarsil::objc {

Thrown thrownBy(const std::function<void()>& work) {
  try {
    work();
  } catch (const std::out_of_range& error) {
    return {Thrown::Kind::outOfRange, error.what()};
  } catch (const std::invalid_argument& error) {
    return {Thrown::Kind::invalidArgument, error.what()};
  } catch (const std::logic_error& error) {
    return {Thrown::Kind::logicError, error.what()};
  }
  return {};
}

}  // namespace tarsil::objc
