#include "base/InternetAddress.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

namespace ravelin {
namespace {

TEST(InternetAddressTest, HoldsItsFamilyHostAndPortAndNothingElse) {
  const sockaddr_in address = internetAddress(::inet_addr("192.0.2.10"), htons(5000));
  EXPECT_EQ(address.sin_family, AF_INET);
  EXPECT_EQ(address.sin_addr.s_addr, htonl(0xC000020A));
  EXPECT_EQ(address.sin_port, htons(5000));
  for (const auto byte : address.sin_zero) {
    EXPECT_EQ(byte, 0);
  }
}

TEST(InternetAddressTest, HoldsItsLengthWhereTheSystemsAddressesDo) {
  // As in a system's headers.
  struct {
    unsigned char sin_len = 0;  // NOLINT(readability-identifier-naming)
    unsigned char other[15] = {};
  } long_;
  setLength(long_);
  EXPECT_EQ(long_.sin_len, 16);
}

}  // namespace
}  // namespace ravelin
