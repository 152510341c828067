#include "engine/key_codec.h"

#include <gtest/gtest.h>

#include <string>

namespace tqdb::engine {
namespace {

TEST(KeyCodec, IntegersAreLittleEndianAndDecodersCheckTheLength) {
  EXPECT_EQ(Int16ToBytes(-2), std::string("\xFE\xFF", 2));
  EXPECT_EQ(Int32ToBytes(0x01020304), std::string("\x04\x03\x02\x01", 4));
  EXPECT_EQ(BytesToInt16(std::string("\x00\x04", 2)), 1024);
  EXPECT_EQ(BytesToInt32(Int32ToBytes(-123456789)), -123456789);
  EXPECT_EQ(BytesToDouble(DoubleToBytes(-2.5e300)), -2.5e300);
  EXPECT_THROW(BytesToInt16("abc"), platform::Fault);
  EXPECT_THROW(BytesToInt32("ab"), platform::Fault);
  EXPECT_THROW(BytesToDouble(""), platform::Fault);
}

TEST(KeyCodec, KeysAreOrderedByCodePointNotByByte) {
  const auto Compare = [](std::string A, std::string B) {
    return CompareKeyToValue(reinterpret_cast<const uint8_t*>(A.data()), A.size(), B);
  };
  EXPECT_GT(Compare("\x80", "\xF1"), 0);  // "€" sorts after "ñ"
  EXPECT_LT(Compare("\x8A", "\x9F"), 0);  // "Š" (U+0160) before "Ÿ" (U+0178)
  EXPECT_LT(Compare("Z", "a"), 0);        // no case folding
  EXPECT_EQ(Compare("ABC", "ABC"), 0);
  EXPECT_GT(Compare("ABC", "AB"), 0);  // the shorter is lower
  EXPECT_LT(Compare("AB", "ABC"), 0);
}

TEST(KeyCodec, CapacityFollowsTheKeyLengthAndNodeViewStaysInThePage) {
  for (const auto& [Length, Capacity] : std::vector<std::pair<int, int>>{
           {1, 204}, {4, 127}, {10, 72}, {26, 34}, {60, 15}, {255, 3}}) {
    EXPECT_EQ(NodeCapacity(Length), Capacity) << Length;
  }
  NodeBuffer Buffer{};
  NodeView Node(Buffer, 255);
  EXPECT_NO_THROW(Node.Entry(2));
  EXPECT_THROW(Node.Entry(3), platform::Fault);  // 3 + 4 x 259 > 1024
  EXPECT_THROW(Node.Entry(-1), platform::Fault);
  Node.SetEntry(2, reinterpret_cast<const uint8_t*>(std::string(255, 'K').data()), 77);
  EXPECT_EQ(Node.Value(2), 77);
  EXPECT_EQ(Node.KeyText(2), std::string(255, 'K'));
}

}  // namespace
}  // namespace tqdb::engine
