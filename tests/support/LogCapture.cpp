#include "tests/support/LogCapture.h"

#include <atomic>
#include <cstring>

#include "host/platform/LogPrefix.h"

namespace {
std::atomic<LogCapture*> gActive{nullptr};
}  // namespace

void LogCapture::Capture(const __android_logger_data* data, const char* message) {
  LogCapture* capture = gActive.load();
  if (capture == nullptr) return;
  std::lock_guard<std::mutex> lock(capture->mMutex);
  try {
    std::string text = MaskLine(message ? message : "");
    const char* tag = data->tag;
    if (data->priority != ANDROID_LOG_ERROR || tag == nullptr ||
        std::strcmp(tag, "ANDR-PERF-LM") != 0) {
      text = "[" + std::to_string(data->priority) + " " + (tag ? tag : "") + "] " + text;
    }
    capture->mMessages.push_back(text);
  } catch (...) {
    // A logger must never throw into liblog; a line lost to a failed
    // allocation is lost.
  }
}

LogCapture::LogCapture() {
  gActive.store(this);
  __android_log_set_logger(Capture);
}

LogCapture::~LogCapture() {
  __android_log_set_logger(__android_log_stderr_logger);
  gActive.store(nullptr);
}

std::vector<std::string> LogCapture::Messages() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mMessages;
}

void LogCapture::Clear() {
  std::lock_guard<std::mutex> lock(mMutex);
  mMessages.clear();
}

std::string LogCapture::MaskLine(const std::string& message) {
  return gorv::LogPrefix::MaskLine(message);
}
