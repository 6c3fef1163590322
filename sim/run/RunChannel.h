// The pipe between a run's child and its parent (ChildRun): the child sends
// records (events, the end, a failure, a note), the parent reads them back.
// A record is a type byte, a 32-bit payload length and the payload; numbers
// are in the machine's order (both ends are the same program).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "sim/output/RunSink.h"

class RunChannel {
 public:
  enum class Type : uint8_t {
    Event = 1,  // a SimEvent
    End,        // a RunEnd that ran to the end
    Failure,    // text: the plug-in could not be run
    Note,       // text: what the child saw before it died (an exception)
  };

  // Child side, one writer at a time: appends one record for `fd`. While
  // buffered (virtual runs: a write per event would cost more than the
  // event), records wait in a fixed 64 KiB buffer that Flush() writes
  // whole; unbuffered (real-time runs) each record is written at once.
  // False when the parent is gone.
  static void SetBuffered(bool buffered);
  static bool SendEvent(int fd, const SimEvent& event);
  static bool SendEnd(int fd, const RunEnd& end);                  // flushes
  static bool SendText(int fd, Type type, std::string_view text);  // flushes
  static bool Flush();
  // Writes the whole records buffered so far; async-signal-safe, for the
  // child's fatal-signal handlers.
  static void FlushFromSignal();

  // Parent side: reads from `fd` until the end of the stream (or a read
  // error), calling `onRecord` for each whole record; a truncated last record
  // is dropped. Decoders for the payloads follow.
  using Handler = std::function<void(Type type, std::string_view payload)>;
  explicit RunChannel(int fd) : mFd(fd) {}
  // Reads what is available (blocking once); false at the end of the stream.
  bool ReadSome(const Handler& onRecord);
  static bool DecodeEvent(std::string_view payload, SimEvent* event);
  static bool DecodeEnd(std::string_view payload, RunEnd* end);

 private:
  int mFd;
  std::string mBuffer;
};
