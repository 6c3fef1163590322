#include "sim/Progress.h"

#include <unistd.h>

#include "sim/ErrorLine.h"
#include "sim/SimWords.h"

Progress::Progress(bool enabled, int64_t delayMs) : mEnabled(enabled), mDelayMs(delayMs) {}

bool Progress::Wanted(bool quiet) { return !quiet && isatty(STDERR_FILENO) == 1; }

std::string Progress::Update(const std::string& text, int64_t nowMs) {
  if (!mEnabled || nowMs < mDelayMs || (mShown && nowMs - mLastMs < kIntervalMs)) return "";
  mShown = true;
  mLastMs = nowMs;
  return "\r" + text + "\x1b[K";
}

std::string Progress::Finish() {
  if (!mShown) return "";
  mShown = false;
  return "\r\x1b[K";
}

void Progress::Show(const std::string& text) {
  auto elapsed = std::chrono::steady_clock::now() - mStarted;
  ErrorLine::WriteRaw(
      Update(text, std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count()));
}

void Progress::Clear() { ErrorLine::WriteRaw(Finish()); }

std::string Progress::RunText(int64_t reachedMs, int64_t endMs) {
  return "gorv-sim: " + SimWords::Seconds(reachedMs) + " s of " + SimWords::Seconds(endMs) +
         " s of virtual time";
}

std::string Progress::BatchText(size_t done, size_t total, size_t failed) {
  return "gorv-sim: " + std::to_string(done) + " of " + std::to_string(total) +
         " scenarios done, " + std::to_string(failed) + " failed";
}
