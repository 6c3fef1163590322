// One updating line on standard error that shows long work going on, as
// "\rTEXT\x1b[K" redrawn in place and erased at the end. Only when standard
// error is a terminal and --quiet is not given: a log file or a pipe gets
// nothing.
//
// The decisions (whether to draw, what) are Update() and Finish(), driven
// with given times; Show() and Clear() only write their answers to
// standard error. Single-threaded.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

class Progress {
 public:
  // Redrawing more often than this shows nothing a reader could follow.
  static constexpr int64_t kIntervalMs = 100;

  // `enabled` false: every call does nothing. Nothing is drawn before
  // `delayMs` has passed since construction (short work shows no line).
  Progress(bool enabled, int64_t delayMs);
  // Standard error is a terminal and `quiet` is not set.
  static bool Wanted(bool quiet);

  // The bytes that show `text` at `nowMs` (since construction): "" when
  // disabled, before the delay, or within kIntervalMs of the last drawing.
  std::string Update(const std::string& text, int64_t nowMs);
  // The bytes that erase the line: "" when none is shown.
  std::string Finish();

  // Update() at the steady clock's time, and Finish(), written to standard
  // error.
  void Show(const std::string& text);
  void Clear();

  // "gorv-sim: DONE of TOTAL scenarios done, FAILED failed".
  static std::string BatchText(size_t done, size_t total, size_t failed);
  // "gorv-sim: REACHED s of END s of virtual time".
  static std::string RunText(int64_t reachedMs, int64_t endMs);

 private:
  bool mEnabled;
  int64_t mDelayMs;
  int64_t mLastMs = 0;
  bool mShown = false;
  std::chrono::steady_clock::time_point mStarted = std::chrono::steady_clock::now();
};
