#include "sim/run/ChannelReader.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

ChannelReader::~ChannelReader() {
  if (mFd >= 0) close(mFd);
}

bool ChannelReader::ReadSome(const Handler& onRecord) {
  char chunk[1 << 16];
  ssize_t got;
  do {
    got = read(mFd, chunk, sizeof(chunk));
  } while (got < 0 && errno == EINTR);
  if (got <= 0) return false;
  mBuffer.append(chunk, static_cast<size_t>(got));
  size_t pos = 0;
  while (mBuffer.size() - pos >= RunChannel::kHeader) {
    uint32_t size;
    std::memcpy(&size, mBuffer.data() + pos + 1, sizeof(size));
    if (mBuffer.size() - pos - RunChannel::kHeader < size) break;
    auto type = static_cast<RunChannel::Type>(mBuffer[pos]);
    onRecord(type, std::string_view(mBuffer).substr(pos + RunChannel::kHeader, size));
    pos += RunChannel::kHeader + size;
  }
  mBuffer.erase(0, pos);
  return true;
}
