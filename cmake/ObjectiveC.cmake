# The languages of the Objective-C layer, with the compilers that have its front ends.
if(NOT APPLE)
  find_package(GNUstep REQUIRED)
  set(CMAKE_OBJC_COMPILER ${GNUSTEP_C_COMPILER})
  set(CMAKE_OBJCXX_COMPILER ${GNUSTEP_CXX_COMPILER})
endif()
enable_language(OBJC OBJCXX)
set(CMAKE_OBJCXX_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
# CMake 3.25 leaves out the standard of this language.
string(APPEND CMAKE_OBJCXX_FLAGS " -std=c++20")
