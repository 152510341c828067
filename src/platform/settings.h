// The persistent setting of the system, read from an INI file.
//
// The file is $TQDB_SETTINGS when set, else ${XDG_CONFIG_HOME:-$HOME/.config}/orvek/brinvale.ini.
// The section is the key path below SOFTWARE\Orvek\Brinvale\ without its trailing "\"
// ("Settings" by default), e.g.
//     [Settings]
//     Directory=/srv/conta/dic/
#pragma once

#include <string>
#include <string_view>

namespace tqdb::platform {

// The value Name of Section ("" means "Settings"); Default when the file, section or
// value is missing. The value is returned as Windows-1252.
std::string GetRegSetting(std::string_view Name, std::string_view Section,
                          std::string_view Default);

}  // namespace tqdb::platform
