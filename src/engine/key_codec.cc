// Little-endian codecs on strings and the rank table of key ordering.
#include "engine/key_codec.h"

#include <bit>

#include "platform/codepage.h"

namespace tqdb::engine {

const std::array<uint8_t, 256> kKeyRank = [] {
  std::array<uint8_t, 256> Table{};
  for (unsigned B = 0; B < 256; ++B) Table[B] = platform::CodePointRank(static_cast<uint8_t>(B));
  return Table;
}();

namespace {

template <typename T>
std::string ToBytes(T Value) {
  std::string Out(sizeof(T), '\0');
  std::memcpy(Out.data(), &Value, sizeof(T));  // the machine is little-endian
  return Out;
}

template <typename T>
T FromBytes(std::string_view Bytes) {
  if (Bytes.size() != sizeof(T)) throw platform::Fault(platform::kInvalidCall);
  T Value;
  std::memcpy(&Value, Bytes.data(), sizeof(T));
  return Value;
}

static_assert(std::endian::native == std::endian::little, "the key file is little-endian");

}  // namespace

std::string Int16ToBytes(int16_t Value) { return ToBytes(Value); }
std::string Int32ToBytes(int32_t Value) { return ToBytes(Value); }
std::string DoubleToBytes(double Value) { return ToBytes(Value); }
int16_t BytesToInt16(std::string_view Bytes) { return FromBytes<int16_t>(Bytes); }
int32_t BytesToInt32(std::string_view Bytes) { return FromBytes<int32_t>(Bytes); }
double BytesToDouble(std::string_view Bytes) { return FromBytes<double>(Bytes); }

}  // namespace tqdb::engine
