// Logging to the Android log, as every part of the plug-in does it: priority
// 6 (error), tag "ANDR-PERF-LM", and a prefix naming the class tag, the
// function and the source line. The function name is always given explicitly
// because several messages name a function other than the one they are in.
#pragma once

#include <android/log.h>

#define GORV_LOG_TAG "ANDR-PERF-LM"

// "<classTag>: <func>() <line>: " followed by the formatted message.
#define GORV_LOG(classTag, func, fmt, ...)                                                  \
  __android_log_print(ANDROID_LOG_ERROR, GORV_LOG_TAG, "%s: %s() %d: " fmt, classTag, func, \
                      __LINE__, ##__VA_ARGS__)

// "<func>() <line>: " followed by the formatted message (SQL error lines).
#define GORV_LOG_SHORT(func, fmt, ...)                                                  \
  __android_log_print(ANDROID_LOG_ERROR, GORV_LOG_TAG, "%s() %d: " fmt, func, __LINE__, \
                      ##__VA_ARGS__)
