#pragma once

#include <functional>

#import <Foundation/Foundation.h>

namespace tarsil::objc {

/// Does the work; what the C++ library throws for a misuse is raised, with the same words, as the exception
/// that stands for it here: NSRangeException for std::out_of_range, NSInvalidArgumentException for
/// std::invalid_argument, NSInternalInconsistencyException for std::logic_error.
void raising(const std::function<void()>& work);

}  // namespace tarsil::objc
