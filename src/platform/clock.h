// Time, sleeping and the temporary directory.
#pragma once

#include <cstdint>
#include <string>

namespace tqdb::platform {

// Seconds since local midnight, with fractions (the system's Timer).
double Timer();
void SleepMilliseconds(int32_t Milliseconds);
// $TMPDIR or "/tmp/", always with a trailing "/", as a Windows-1252 name like every other.
std::string TempDirectory();
// The current local date and time formatted with the archive pattern " yyyy-MM-dd HH mm ss ".
std::string ArchiveTimestamp();
// Minutes and seconds written as minutes.seconds, rounded to 2 decimals, from an elapsed
// time in seconds (150 seconds give 2.3).
double MinutesDotSeconds(double ElapsedSeconds);

}  // namespace tqdb::platform
