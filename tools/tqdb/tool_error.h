// How the tool reports failure.
//
// The tool's own refusals (a bad schema, a CSV row that cannot be imported, a table that
// is not there) are ToolErrors: a message in the user's words and an exit status. Errors
// of the library reach the user as the system gives them: its number and its Spanish
// description.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

namespace tqdb::tool {

// Exit statuses: 0 success; 1 the command ran but found a problem (check found damage,
// seek found nothing, bad CSV rows) or the library raised an error; 2 usage errors.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

class ToolError : public std::runtime_error {
 public:
  explicit ToolError(const std::string& Message, int ExitStatus = kExitFailure)
      : std::runtime_error(Message), exit_status_(ExitStatus) {}
  int ExitStatus() const { return exit_status_; }

 private:
  int exit_status_;
};

// Runs Command and returns its exit status. Whatever it raises is printed on stderr
// ("tqdb: error 50234: Campo FOO no existe" for the library's errors, the message for a
// ToolError) and becomes a non-zero status; nothing escapes.
int RunReportingErrors(const std::function<int()>& Command);

// A description on one line: the line breaks (CR LF) some of the system's descriptions
// hold become blanks.
std::string OneLine(std::string Text);

}  // namespace tqdb::tool
