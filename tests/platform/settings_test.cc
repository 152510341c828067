#include "platform/settings.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/scoped_env.h"
#include "support/temp_dir.h"

namespace tqdb::platform {
namespace {

TEST(Settings, ReadsTheValueFromTheNamedFileAsWindows1252) {
  testing::TempDir Dir;
  const std::string Ini = Dir.Write("brinvale.ini",
                                    "\xEF\xBB\xBF[Other]\n"
                                    "; comment\n"
                                    "Directory=/wrong/\n"
                                    "  [ settings ]  \r\n"
                                    "# another comment\n"
                                    "  directory =  /srv/año/dic/  \r\n"
                                    "Empty=\n"
                                    "Quoted=\"with blanks \"\n");
  testing::ScopedEnv Env("TQDB_SETTINGS", Ini.c_str());
  EXPECT_EQ(GetRegSetting("Directory", "", "none"), "/srv/a\xF1o/dic/");
  EXPECT_EQ(GetRegSetting("DIRECTORY", "Settings\\", "none"), "/srv/a\xF1o/dic/");
  EXPECT_EQ(GetRegSetting("Directory", "Other", "none"), "/wrong/");
  EXPECT_EQ(GetRegSetting("Empty", "", "none"), "");
  EXPECT_EQ(GetRegSetting("Quoted", "", "none"), "with blanks ");
  EXPECT_EQ(GetRegSetting("Missing", "", "none"), "none");
  EXPECT_EQ(GetRegSetting("Directory", "Nowhere", "dflt"), "dflt");
}

TEST(Settings, FallsBackToTheConfigDirectory) {
  testing::TempDir Dir;
  testing::ScopedEnv Explicit("TQDB_SETTINGS", nullptr);
  testing::ScopedEnv Xdg("XDG_CONFIG_HOME", Dir.Path().c_str());
  EXPECT_EQ(GetRegSetting("Directory", "", "default"), "default");  // no file
  std::filesystem::create_directories(Dir.File("orvek"));
  Dir.Write("orvek/brinvale.ini", "[Settings]\nDirectory=/from/xdg/\n");
  EXPECT_EQ(GetRegSetting("Directory", "", "default"), "/from/xdg/");
  testing::ScopedEnv NoXdg("XDG_CONFIG_HOME", nullptr);
  testing::ScopedEnv Home("HOME", Dir.Path().c_str());
  EXPECT_EQ(GetRegSetting("Directory", "", "default"), "default");  // ~/.config has none
}

}  // namespace
}  // namespace tqdb::platform
