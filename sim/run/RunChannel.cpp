#include "sim/run/RunChannel.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "sim/run/WireFormat.h"

namespace {

using WireFormat::Cursor;
using WireFormat::Put;
using WireFormat::PutText;

bool WriteAll(int fd, const char* data, size_t size);
bool WriteAll(int fd, const std::string& data) { return WriteAll(fd, data.data(), data.size()); }

bool WriteAll(int fd, const char* data, size_t size) {
  for (size_t done = 0; done < size;) {
    ssize_t wrote = write(fd, data + done, size - done);
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) return false;
    done += static_cast<size_t>(wrote);
  }
  return true;
}

// The child's pending records: a fixed array, so that a signal handler can
// write it out whatever the heap's state; `size` covers whole records only.
struct Pending {
  char data[1 << 16];
  std::atomic<size_t> size{0};
  int fd = -1;
  bool buffered = true;
};
Pending gPending;

bool FlushPending() {
  size_t size = gPending.size.load();
  gPending.size.store(0);
  return size == 0 || WriteAll(gPending.fd, gPending.data, size);
}

// Writes a record's header (type, then the payload's length) at `at`;
// async-signal-safe.
void PutHeader(char* at, RunChannel::Type type, size_t length) {
  at[0] = static_cast<char>(type);
  auto size = static_cast<uint32_t>(length);
  std::memcpy(at + 1, &size, sizeof(size));
}

// Appends a record: straight into the pending buffer when it fits (no
// copy of its own), else written at once.
bool Send(int fd, RunChannel::Type type, std::string_view payload) {
  size_t recordSize = RunChannel::kHeader + payload.size();
  size_t size = gPending.size.load();
  if (!gPending.buffered || gPending.fd != fd || size + recordSize > sizeof(gPending.data)) {
    if (!FlushPending()) return false;
    gPending.fd = fd;
    size = 0;
  }
  if (!gPending.buffered || recordSize > sizeof(gPending.data)) {
    std::string record(RunChannel::kHeader, '\0');
    PutHeader(record.data(), type, payload.size());
    record += payload;
    return WriteAll(fd, record);
  }
  char* record = gPending.data + size;
  PutHeader(record, type, payload.size());
  std::memcpy(record + RunChannel::kHeader, payload.data(), payload.size());
  gPending.size.store(size + recordSize);
  return true;
}

}  // namespace

namespace RunChannel {

bool SendEvent(int fd, const SimEvent& event) {
  // Reused: an event costs no allocation once the buffer has grown.
  thread_local std::string payload;
  payload.clear();
  Put(&payload, event.tMs);
  Put(&payload, static_cast<uint8_t>(event.kind));
  Put(&payload, event.value);
  Put(&payload, event.handle);
  Put(&payload, event.priority);
  Put(&payload, event.triggerValue);
  Put(&payload, static_cast<uint32_t>(event.resources.size()));
  for (int32_t resource : event.resources) Put(&payload, resource);
  PutText(&payload, event.name);
  PutText(&payload, event.text);
  return Send(fd, Type::Event, payload);
}

bool SendEnd(int fd, const RunEnd& end) {
  std::string payload;
  Put(&payload, end.endMs);
  Put(&payload, end.sessionMs);
  PutText(&payload, end.stopped);
  return Send(fd, Type::End, payload) && FlushPending();
}

bool SendText(int fd, Type type, std::string_view text) {
  return Send(fd, type, text) && FlushPending();
}

void SetBuffered(bool buffered) {
  FlushPending();
  gPending.buffered = buffered;
}

bool Flush() { return FlushPending(); }

void FlushFromSignal() {
  size_t size = gPending.size.load();
  if (size > 0) WriteAll(gPending.fd, gPending.data, size);
  gPending.size.store(0);
}

void SendNotStarted(int fd, int error) {
  char record[kHeader + sizeof(int32_t)];
  auto value = static_cast<int32_t>(error);
  PutHeader(record, Type::NotStarted, sizeof(value));
  std::memcpy(record + kHeader, &value, sizeof(value));
  WriteAll(fd, record, sizeof(record));
}

bool DecodeEvent(std::string_view payload, SimEvent* event) {
  Cursor in(payload);
  event->tMs = in.Get<int64_t>();
  event->kind = static_cast<SimEvent::Kind>(in.Get<uint8_t>());
  event->value = in.Get<int64_t>();
  event->handle = in.Get<int32_t>();
  event->priority = in.Get<int32_t>();
  event->triggerValue = in.Get<int32_t>();
  auto count = in.Get<uint32_t>();
  event->resources.clear();
  for (uint32_t i = 0; i < count && in.ok(); ++i) event->resources.push_back(in.Get<int32_t>());
  event->name = in.Text();
  event->text = in.Text();
  return in.ok();
}

bool DecodeEnd(std::string_view payload, RunEnd* end) {
  Cursor in(payload);
  end->endMs = in.Get<int64_t>();
  end->sessionMs = in.Get<int64_t>();
  end->stopped = in.Text();
  return in.ok();
}

}  // namespace RunChannel
