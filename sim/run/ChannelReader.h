// The parent's end of a run's channel (RunChannel): reads the records the
// child sent and hands each whole one on. Owns the descriptor (closed when
// the reader goes). One thread.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "sim/run/RunChannel.h"

class ChannelReader {
 public:
  using Handler = std::function<void(RunChannel::Type type, std::string_view payload)>;
  explicit ChannelReader(int fd) : mFd(fd) {}
  ~ChannelReader();
  ChannelReader(const ChannelReader&) = delete;
  ChannelReader& operator=(const ChannelReader&) = delete;

  int fd() const { return mFd; }
  // Reads what is available (blocking once), calling `onRecord` for each
  // whole record; false at the end of the stream or on a read error (a
  // truncated last record is dropped).
  bool ReadSome(const Handler& onRecord);

 private:
  int mFd;
  std::string mBuffer;
};
