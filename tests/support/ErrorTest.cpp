#include "tarsil/support/Error.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

namespace tarsil {
namespace {

TEST(ErrorTest, CarriesTheErrnoValueItsTextAndThePath) {
  const Error error = Error::posix(EBUSY, "/dev/ttyUSB0");
  EXPECT_EQ(error.domain, "POSIX");
  EXPECT_EQ(error.code, EBUSY);
  EXPECT_EQ(error.localizedDescription, std::strerror(EBUSY));
  EXPECT_EQ(error.filePath, "/dev/ttyUSB0");
}

TEST(ErrorTest, DescribesItselfOnOneLine) {
  EXPECT_EQ(Error::posix(ENOENT, "/dev/ttyS7").description(),
            "POSIX error 2: No such file or directory (/dev/ttyS7)");
}

TEST(ErrorTest, ComparesByValue) {
  EXPECT_EQ(Error::posix(EIO, "/dev/ttyS0"), Error::posix(EIO, "/dev/ttyS0"));
  EXPECT_NE(Error::posix(EIO, "/dev/ttyS0"), Error::posix(EIO, "/dev/ttyS1"));
  EXPECT_NE(Error::posix(EIO, "/dev/ttyS0"), Error::posix(ENXIO, "/dev/ttyS0"));
}

}  // namespace
}  // namespace tarsil
