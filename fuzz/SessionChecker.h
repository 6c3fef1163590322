// Watches the plug-in's effects on the host platform during one fuzz input
// and stops the process (so that libFuzzer keeps the input) as soon as one
// breaks a rule that holds whatever the framework does:
//  - the fps node only ever receives a hinted value or a target frame rate
//    (0, 20, 25, 30, 35, 40, 60, 90, 120, 144);
//  - the pid node only receives the pid of a process the framework reported;
//  - a perf lock is requested as {0x44800000, 1}, at most one is held at a
//    time, and only a held handle is released.
// One instance at a time, on the thread that drives the feature.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "host/platform/HostEnv.h"

class SessionChecker {
 public:
  // Listens to HostEnv until destroyed.
  SessionChecker();
  ~SessionChecker();
  SessionChecker(const SessionChecker&) = delete;
  SessionChecker& operator=(const SessionChecker&) = delete;

  // An fps hint trigger carried `value`: the node may receive it.
  void AllowHint(int32_t value) { mHints.insert(value); }
  // The framework reports `pid` for the game: the pid node may receive it.
  void AllowPid(int32_t pid) { mPids.insert(pid); }

  // Every lock acquired has been released.
  void ExpectNoLockHeld(const char* when) const;

  // Prints `what` and aborts.
  [[noreturn]] static void Fail(const std::string& what);

 private:
  void OnEffect(const gorv::HostEvent& event);
  void CheckNode(const gorv::HostEvent& event) const;
  void CheckAcquire(const gorv::HostEvent& event);
  void CheckRelease(const gorv::HostEvent& event);

  int mListener = 0;
  std::set<int32_t> mHints;
  std::set<int32_t> mPids;
  std::set<int32_t> mHeld;  // handles acquired (>= 1) and not yet released
};
