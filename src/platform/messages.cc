// The process-wide receiver of messages meant for a person.
#include "platform/messages.h"

#include <cstdio>
#include <mutex>
#include <utility>

#include "platform/codepage.h"

namespace tqdb {
namespace {

using Sink = std::function<void(const std::string& Text, MessageIcon Icon)>;

void DefaultSink(const std::string& Text, MessageIcon Icon) {
  const char* Prefix = Icon == MessageIcon::Critical      ? "tqdb: error: "
                       : Icon == MessageIcon::Exclamation ? "tqdb: aviso: "
                                                          : "tqdb: ";
  const std::string Line = Prefix + Text + "\n";
  std::fwrite(Line.data(), 1, Line.size(), stderr);  // one write: lines never interleave
}

std::mutex& SinkMutex() {
  static std::mutex Mutex;
  return Mutex;
}

Sink& CurrentSink() {
  static Sink Current = DefaultSink;
  return Current;
}

}  // namespace

void SetMessageSink(Sink NewSink) {
  std::lock_guard Lock(SinkMutex());
  CurrentSink() = NewSink ? std::move(NewSink) : Sink(DefaultSink);
}

namespace platform {

void ShowMessage(std::string_view Text, MessageIcon Icon) {
  Sink Target;
  {
    std::lock_guard Lock(SinkMutex());
    Target = CurrentSink();
  }
  // The sink runs outside the lock, so it may itself show a message or replace the sink.
  try {
    Target(Cp1252ToUtf8(Text), Icon);
  } catch (...) {
    // A failing receiver must not turn a message into an error of the operation.
  }
}

}  // namespace platform
}  // namespace tqdb
