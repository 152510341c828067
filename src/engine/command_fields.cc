// Field access on engine command texts.
#include "engine/command_fields.h"

#include "platform/numbers.h"

namespace tqdb::engine {

size_t CommandFields::Start(int Number) const {
  size_t Begin = 0;
  for (int Field = 1; Field <= Number; ++Field) {
    const size_t Found = command_.find(separator_, Begin);
    Begin = Found == std::string_view::npos ? 0 : Found + 1;
  }
  return Begin;
}

int16_t CommandFields::Int16(int Number) const {
  return platform::ToInt16(platform::Val(command_.substr(Start(Number))));
}

int32_t CommandFields::Int32(int Number) const {
  return platform::ToInt32(platform::Val(command_.substr(Start(Number))));
}

std::string_view CommandFields::Text(int Number) const {
  const std::string_view Rest = command_.substr(Start(Number));
  return Rest.substr(0, Rest.find(separator_));
}

std::string_view CommandFields::TextToEnd(int Number) const {
  return command_.substr(Start(Number));
}

std::vector<std::string> CommandFields::KeyTexts(const EngineState& Engine, int First) const {
  // The key texts follow the (First)th separator; fewer separators mean no key texts.
  size_t Begin = 0;
  for (int Field = 1; Field <= First; ++Field) {
    const size_t Found = command_.find(separator_, Begin);
    if (Found == std::string_view::npos) return {};
    Begin = Found + 1;
  }
  const std::string_view Rest = command_.substr(Begin);
  std::vector<std::string> Texts;
  const int Keys = Engine.Header.KeyCount;
  size_t FullLength = Keys > 0 ? size_t(Keys - 1) : 0;
  for (int Key = 1; Key <= Keys && Key <= kMaxKeys; ++Key) FullLength += size_t(Engine.KeyLen[Key]);
  bool ByLength = Keys > 0 && Keys <= kMaxKeys && Rest.size() == FullLength;
  for (size_t At = 0, Key = 1; ByLength && Key < size_t(Keys); ++Key) {
    At += size_t(Engine.KeyLen[Key]);
    ByLength = Rest[At] == separator_;
    ++At;
  }
  if (ByLength) {
    for (size_t At = 0, Key = 1; Key <= size_t(Keys); ++Key) {
      Texts.emplace_back(Rest.substr(At, size_t(Engine.KeyLen[Key])));
      At += size_t(Engine.KeyLen[Key]) + 1;
    }
    return Texts;
  }
  for (size_t At = 0;;) {
    const size_t Next = Rest.find(separator_, At);
    Texts.emplace_back(Rest.substr(At, Next == std::string_view::npos ? Rest.npos : Next - At));
    if (Next == std::string_view::npos) return Texts;
    At = Next + 1;
  }
}

void CommandFields::OldAndNew(const EngineState& Engine, int Key, std::string_view& Old,
                              std::string_view& New) const {
  const std::string_view Rest = TextToEnd(4);
  const size_t Length = (Key >= 1 && Key <= kMaxKeys) ? size_t(Engine.KeyLen[Key]) : 0;
  if (Length > 0 && Rest.size() == 2 * Length + 1 && Rest[Length] == separator_) {
    Old = Rest.substr(0, Length);
    New = Rest.substr(Length + 1);
    return;
  }
  Old = Text(4);
  New = TextToEnd(5);
}

}  // namespace tqdb::engine
