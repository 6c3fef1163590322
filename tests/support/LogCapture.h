// Captures the Android log lines written while it is alive, through liblog's
// __android_log_set_logger. Messages() returns whole texts with the source
// line of the "<tag>: <function>() <line>: " prefix replaced by "N", so a test
// compares the complete message without pinning line numbers. A line not
// logged at error priority under the plug-in's tag "ANDR-PERF-LM" comes with
// its priority and tag in front ("[4 other] text"), so that a comparison
// pins those too. Thread-safe; one capture at a time.
#pragma once

#include <android/log.h>

#include <mutex>
#include <string>
#include <vector>

// Log lines and other texts a test compares whole, in order.
using Lines = std::vector<std::string>;

class LogCapture {
 public:
  LogCapture();
  ~LogCapture();  // restores liblog's stderr logger

  std::vector<std::string> Messages() const;  // line numbers masked as "N"
  void Clear();

  // "X: f() 123: text" -> "X: f() N: text"; "f() 12: text" -> "f() N: text".
  static std::string MaskLine(const std::string& message);

 private:
  // liblog's logger: appends to the capture alive, if any.
  static void Capture(const __android_logger_data* data, const char* message);
  mutable std::mutex mMutex;
  std::vector<std::string> mMessages;
};
