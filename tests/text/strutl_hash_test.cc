#include <gtest/gtest.h>

#include "strutl.h"

namespace {

TEST(StrutlStrToHash32, BeginsWithTheSeed) {
  EXPECT_EQ(strutl_str_to_hash32(0, ""), 0u);
  EXPECT_EQ(strutl_str_to_hash32(5, ""), 5u);
}

TEST(StrutlStrToHash32, RotatesAndAddsEachByte) {
  EXPECT_EQ(strutl_str_to_hash32(0, "a"), 0x61u);
  EXPECT_EQ(strutl_str_to_hash32(0, "ab"), 0xc82u);     // 0x61 << 5 and 0x62
  EXPECT_EQ(strutl_str_to_hash32(0, "abc"), 0x190a3u);  // 0xc82 << 5 and 0x63
  EXPECT_EQ(strutl_str_to_hash32(1, "a"), 0x81u);
}

TEST(StrutlStrToHash32, TopBitsComeInBelow) {
  EXPECT_EQ(strutl_str_to_hash32(0xf8000000, "a"), 0x80u);  // 0x1f and 0x61
}

TEST(StrutlStrToHash32, BytesAreUnsigned) {
  EXPECT_EQ(strutl_str_to_hash32(0x80000001, "\xff"), 0x12fu);  // 0x30 and 0xff
}

TEST(StrutlStrToHash32, TheSumWrapsAround) {
  EXPECT_EQ(strutl_str_to_hash32(0x07ffffff, "z"), 0x5au);  // 0xffffffe0 and 0x7a
}

}  // namespace
