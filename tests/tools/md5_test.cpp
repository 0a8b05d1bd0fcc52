// MD5: vectors of the RFC 1321 test suite and openssl as an oracle over random messages of many
// lengths, including one fed in uneven pieces whose bit count no longer fits 32 bits. The codec
// tests feed MD5 in random pieces too.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string_view>
#include <vector>

#include "tools/md5.hpp"
#include "support/pcap_file.hpp"
#include "tools/tools_test_support.hpp"

namespace vormelt::tools {
namespace {

using test::Bytes;
using test::RandomBytes;

TEST(Md5, Rfc1321TestSuite) {
  EXPECT_EQ(Md5Hex(Bytes("")), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(Md5Hex(Bytes("abc")), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(Md5Hex(Bytes("message digest")), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(Md5Hex(Bytes("1234567890123456789012345678901234567890"
                         "1234567890123456789012345678901234567890")),
            "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5, MatchesOpensslAcrossBlockBoundariesAndLargeSizes) {
  if (!test::OpensslAvailable()) GTEST_SKIP() << "openssl is not installed; it is the oracle here";
  std::vector<std::vector<std::uint8_t>> messages;
  for (std::size_t n = 0; n <= 130; ++n) messages.push_back(RandomBytes(n, n));  // 55/56/63/64/65...
  for (std::size_t n : {1000u, 4095u, 4096u, 4097u, 65536u + 55u, 1u << 20, (3u << 20) + 7u}) {
    messages.push_back(RandomBytes(n, n));
  }
  for (const auto& message : messages) {
    const auto expected = test::Openssl("md5 -r", message);  // "<digits> *stdin"
    ASSERT_TRUE(expected && expected->size() >= 32) << "openssl md5 did not answer";
    ASSERT_EQ(Md5Hex(message), expected->substr(0, 32)) << message.size() << " bytes";
  }
}

// 2^32 bits is 512 MiB: a length counter of 32 bits would wrap here and go unnoticed by every
// smaller message.
TEST(Md5, MessagesBeyond512MiBKeepTheirFullBitCount) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "hashing 512 MiB takes about a minute under the sanitizers; the plain build runs this";
#endif
  if (!test::OpensslAvailable()) GTEST_SKIP() << "openssl is not installed; it is the oracle here";
  const test::TempDir dir;
  const std::string digestFile = dir.File("digest");
  FILE* openssl = popen(("openssl md5 -r > '" + digestFile + "'").c_str(), "w");
  ASSERT_NE(openssl, nullptr);
  constexpr std::size_t kTotal = (std::size_t{512} << 20) + 77;
  const auto chunk = RandomBytes(1 << 20, 7);
  Md5 md5;
  for (std::size_t sent = 0; sent < kTotal;) {
    const std::size_t take = std::min(chunk.size() - sent % 1000, kTotal - sent);  // uneven pieces
    md5.Update(std::span(chunk).first(take));
    ASSERT_EQ(std::fwrite(chunk.data(), 1, take, openssl), take);
    sent += take;
  }
  ASSERT_EQ(pclose(openssl), 0);
  std::string digest;  // "<digits> *stdin"
  std::ifstream(digestFile) >> digest;
  EXPECT_EQ(DigestToHex(md5.Final()), digest);
}

}  // namespace
}  // namespace vormelt::tools
