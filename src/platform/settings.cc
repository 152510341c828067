// The INI file that holds the system's persistent setting.
#include "platform/settings.h"

#include <cstdlib>
#include <fstream>

#include "platform/codepage.h"

namespace tqdb::platform {
namespace {

std::string SettingsFile() {
  const char* Explicit = std::getenv("TQDB_SETTINGS");
  if (Explicit != nullptr && *Explicit != '\0') return Explicit;
  std::string Base;
  if (const char* Xdg = std::getenv("XDG_CONFIG_HOME"); Xdg != nullptr && *Xdg != '\0') {
    Base = Xdg;
  } else if (const char* Home = std::getenv("HOME"); Home != nullptr && *Home != '\0') {
    Base = std::string(Home) + "/.config";
  } else {
    return "";
  }
  return Base + "/orvek/brinvale.ini";
}

std::string_view TrimSpace(std::string_view Text) {
  const auto IsSpace = [](char C) { return C == ' ' || C == '\t' || C == '\r'; };
  while (!Text.empty() && IsSpace(Text.front())) Text.remove_prefix(1);
  while (!Text.empty() && IsSpace(Text.back())) Text.remove_suffix(1);
  return Text;
}

// A section name as written in the file or asked for: trailing "\" dropped, upper case.
std::string SectionKey(std::string_view Section) {
  Section = TrimSpace(Section);
  while (!Section.empty() && Section.back() == '\\') Section.remove_suffix(1);
  return UpperCase(Section);
}

}  // namespace

std::string GetRegSetting(std::string_view Name, std::string_view Section,
                          std::string_view Default) {
  const std::string Path = SettingsFile();
  std::ifstream In(Path);
  if (Path.empty() || !In) return std::string(Default);
  const std::string WantedSection = SectionKey(Section.empty() ? "Settings" : Section);
  const std::string WantedName = UpperCase(TrimSpace(Name));
  bool InSection = false;
  std::string Line;
  for (bool First = true; std::getline(In, Line); First = false) {
    if (First && Line.starts_with("\xEF\xBB\xBF")) Line.erase(0, 3);  // UTF-8 mark
    const std::string Text = Utf8ToCp1252(Line);
    const std::string_view Trimmed = TrimSpace(Text);
    if (Trimmed.empty() || Trimmed.front() == ';' || Trimmed.front() == '#') continue;
    if (Trimmed.front() == '[') {
      const size_t Close = Trimmed.find(']');
      InSection = Close != std::string_view::npos &&
                  SectionKey(Trimmed.substr(1, Close - 1)) == WantedSection;
      continue;
    }
    const size_t Equals = Trimmed.find('=');
    if (!InSection || Equals == std::string_view::npos) continue;
    if (UpperCase(TrimSpace(Trimmed.substr(0, Equals))) != WantedName) continue;
    std::string_view Value = TrimSpace(Trimmed.substr(Equals + 1));
    if (Value.size() >= 2 && Value.front() == '"' && Value.back() == '"') {
      Value = Value.substr(1, Value.size() - 2);
    }
    return std::string(Value);
  }
  return std::string(Default);
}

}  // namespace tqdb::platform
