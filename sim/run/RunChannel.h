// The pipe between a run's child and its parent (RunSupervisor): the child sends
// records (events, the end, a failure, a note), the parent reads them back
// (ChannelReader).
// A record is a type byte, a 32-bit payload length and the payload; numbers
// are in the machine's order (both ends are the same program).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "sim/output/RunSink.h"

namespace RunChannel {

enum class Type : uint8_t {
  Event = 1,   // a SimEvent
  End,         // a RunEnd: the run ended, or stopped when asked
  Failure,     // text: the plug-in could not be run
  Note,        // text: an exception that escaped, said before the child ends
  NotStarted,  // an int errno: the run's program could not be started
  Started,     // nothing: the run's process is gorv-sim's and has begun
};

// Bytes before each payload: the type and the payload's length.
inline constexpr size_t kHeader = 5;

// Child side, one writer at a time: appends one record for `fd`. While
// buffered (virtual runs: a write per event would cost more than the
// event), records wait in a fixed 64 KiB buffer that Flush() writes whole;
// unbuffered (real-time runs) each record is written at once. False when
// the parent is gone.
void SetBuffered(bool buffered);
bool SendEvent(int fd, const SimEvent& event);
bool SendEnd(int fd, const RunEnd& end);                  // flushes
bool SendText(int fd, Type type, std::string_view text);  // flushes
bool Flush();
// Writes the whole records buffered so far; async-signal-safe, for the
// child's fatal-signal handlers.
void FlushFromSignal();
// Sends NotStarted with `error`; async-signal-safe, for a forked process
// whose exec failed.
void SendNotStarted(int fd, int error);

// Parent side: the payloads' decoders (false for a damaged payload).
bool DecodeEvent(std::string_view payload, SimEvent* event);
bool DecodeEnd(std::string_view payload, RunEnd* end);

}  // namespace RunChannel
