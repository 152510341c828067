// Case-insensitive mapping of the system's file names onto the Linux file system.
//
// Nothing is cached: every call looks at the directories as they are now, so files
// created, renamed or deleted by other processes are always seen.
#include "platform/paths.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <vector>

#include "platform/codepage.h"
#include "platform/fault.h"

namespace tqdb::platform {
namespace {

bool IsSeparator(char C) { return C == '/' || C == '\\'; }

size_t LastSeparator(std::string_view Name) {
  for (size_t I = Name.size(); I > 0; --I) {
    if (IsSeparator(Name[I - 1])) return I - 1;
  }
  return std::string_view::npos;
}

std::vector<std::string_view> SplitComponents(std::string_view Name) {
  std::vector<std::string_view> Parts;
  size_t Start = 0;
  for (size_t I = 0; I <= Name.size(); ++I) {
    if (I == Name.size() || IsSeparator(Name[I])) {
      if (I > Start) Parts.push_back(Name.substr(Start, I - Start));
      Start = I + 1;
    }
  }
  return Parts;
}

bool Exists(const std::string& Path) {
  struct stat Info;
  return ::lstat(Path.c_str(), &Info) == 0;
}

struct DirCloser {
  void operator()(DIR* Dir) const { ::closedir(Dir); }
};

// The entry of Directory (a Linux path, "" for the working directory) whose upper-cased
// Windows-1252 name equals Upper; the smallest such name, so the choice is stable. ""
// when none matches or the directory cannot be read.
std::string FindCaseless(const std::string& Directory, const std::string& Upper) {
  std::unique_ptr<DIR, DirCloser> Dir(::opendir(Directory.empty() ? "." : Directory.c_str()));
  if (!Dir) return "";
  std::string Found;
  while (const dirent* Entry = ::readdir(Dir.get())) {
    const std::string_view EntryName = Entry->d_name;
    if (EntryName.size() < Upper.size()) continue;  // UTF-8 is never shorter than 1252
    if (UpperCase(Utf8ToCp1252(EntryName)) != Upper) continue;
    if (Found.empty() || EntryName < Found) Found = EntryName;
  }
  return Found;
}

struct stat StatOrFault(std::string_view Name) {
  struct stat Info;
  if (::stat(ResolvePath(Name).c_str(), &Info) != 0) {
    throw Fault(FaultNumberFromErrno(errno));
  }
  return Info;
}

}  // namespace

std::string DirectoryPart(std::string_view Name) {
  const size_t Last = LastSeparator(Name);
  return Last == std::string_view::npos ? std::string() : std::string(Name.substr(0, Last + 1));
}

std::string FilePart(std::string_view Name) {
  const size_t Last = LastSeparator(Name);
  return std::string(Last == std::string_view::npos ? Name : Name.substr(Last + 1));
}

std::string ResolvePath(std::string_view Name) {
  if (Name.empty()) return "";
  std::string Path = IsSeparator(Name.front()) ? "/" : "";
  bool ParentExists = true;
  for (std::string_view Part : SplitComponents(Name)) {
    const std::string AsGiven = Cp1252ToUtf8(Part);
    std::string Candidate = Path + AsGiven;
    if (ParentExists && Part != "." && Part != ".." && !Exists(Candidate)) {
      const std::string Match = FindCaseless(Path, UpperCase(Part));
      if (Match.empty()) {
        ParentExists = false;
      } else {
        Candidate = Path + Match;
      }
    }
    Path = std::move(Candidate) + "/";
  }
  if (!IsSeparator(Name.back()) && Path.size() > 1) Path.pop_back();
  return Path;
}

bool FileExists(std::string_view Name) {
  struct stat Info;
  return ::stat(ResolvePath(Name).c_str(), &Info) == 0 && S_ISREG(Info.st_mode);
}

bool DirectoryExists(std::string_view Name) {
  struct stat Info;
  return ::stat(ResolvePath(Name).c_str(), &Info) == 0 && S_ISDIR(Info.st_mode);
}

void DeleteFile(std::string_view Name) {
  if (::unlink(ResolvePath(Name).c_str()) != 0) throw Fault(FaultNumberFromErrno(errno));
}

void RenameFile(std::string_view From, std::string_view To) {
  if (::rename(ResolvePath(From).c_str(), ResolvePath(To).c_str()) != 0) {
    throw Fault(FaultNumberFromErrno(errno));
  }
}

void MakeDirectory(std::string_view Name) {
  if (::mkdir(ResolvePath(Name).c_str(), 0777) != 0) {
    const int Error = errno;
    if (Error == EEXIST) throw Fault(kPathFileAccess);
    throw Fault(Error == ENOENT ? kPathNotFound : FaultNumberFromErrno(Error));
  }
}

int64_t FileLengthByName(std::string_view Name) {
  const struct stat Info = StatOrFault(Name);
  if (!S_ISREG(Info.st_mode)) throw Fault(kFileNotFound);
  return Info.st_size;
}

}  // namespace tqdb::platform
