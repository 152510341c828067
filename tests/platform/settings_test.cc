#include "platform/settings.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/scoped_env.h"
#include "support/temp_dir.h"

namespace tqdb::platform {
namespace {

class SettingsTest : public ::testing::Test {
 protected:
  testing::TempDir Dir;
};

TEST_F(SettingsTest, ReadsTheValueFromTheNamedFile) {
  const std::string Ini = Dir.Write("brinvale.ini",
                                    "; comment\n"
                                    "[Other]\n"
                                    "Directory=/wrong/\n"
                                    "\n"
                                    "  [ settings ]  \r\n"
                                    "# another comment\n"
                                    "  directory =  /srv/conta/dic/  \r\n"
                                    "Empty=\n"
                                    "Quoted=\"with blanks \"\n");
  testing::ScopedEnv Env("TQDB_SETTINGS", Ini.c_str());
  EXPECT_EQ(GetRegSetting("Directory", "", "none"), "/srv/conta/dic/");
  EXPECT_EQ(GetRegSetting("DIRECTORY", "Settings\\", "none"), "/srv/conta/dic/");
  EXPECT_EQ(GetRegSetting("Directory", "Other", "none"), "/wrong/");
  EXPECT_EQ(GetRegSetting("Empty", "", "none"), "");
  EXPECT_EQ(GetRegSetting("Quoted", "", "none"), "with blanks ");
  EXPECT_EQ(GetRegSetting("Missing", "", "none"), "none");
  EXPECT_EQ(GetRegSetting("Directory", "Nowhere", "dflt"), "dflt");
}

TEST_F(SettingsTest, ValuesComeBackAsWindows1252) {
  const std::string Ini = Dir.Write("s.ini", "\xEF\xBB\xBF[Settings]\nDirectory=/datos/año/\n");
  testing::ScopedEnv Env("TQDB_SETTINGS", Ini.c_str());
  EXPECT_EQ(GetRegSetting("Directory", "", ""), "/datos/a\xF1o/");
}

TEST_F(SettingsTest, FallsBackToTheConfigDirectory) {
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
