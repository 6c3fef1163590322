// The simulator's end-to-end tests: a fresh temporary folder (see
// TempFolder) that runs gorv-sim, and the scenarios several tests play.
// Needs GORV_SIM_PATH, the command line that starts gorv-sim.
#pragma once

#include <glob.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/TempFolder.h"

class SimFolderTest : public ::testing::Test, public TempFolder {
 public:
  // Runs gorv-sim in the folder with `arguments`, after `environment`
  // (assignments such as "GORV_SIM_SYSFS_DIR=..."); `stdoutTo` as for TempFolder::Run.
  // Under qemu-user (the Arm build's tests) the emulator adds its own line
  // to the shared standard error when a run's child dies of a signal; that
  // line is the emulator's, not gorv-sim's, and is dropped.
  Outcome Sim(const std::string& arguments, const std::string& environment = "",
              const std::string& stdoutTo = "") const {
    return SimIn(*this, arguments, environment, stdoutTo);
  }
  // The same in another folder.
  static Outcome SimIn(const TempFolder& folder, const std::string& arguments,
                       const std::string& environment = "", const std::string& stdoutTo = "") {
    Outcome outcome = folder.Run(environment + " " + GORV_SIM_PATH + " " + arguments, stdoutTo);
    const std::string emulatorNote = "qemu: uncaught target signal ";
    for (size_t at; (at = outcome.err.find(emulatorNote)) != std::string::npos;) {
      outcome.err.erase(at, outcome.err.find('\n', at) + 1 - at);
    }
    return outcome;
  }

  // A game playing at 60 fps from 1 s to 5 s; the run ends at 6 s.
  static constexpr const char* kSession =
      "property ro.vendor.perf.gorv true\napp com.example.game 2 4242\nfps 0 60\n"
      "trigger 1000 4097 com.example.game/.Main\ntrigger 5000 4098 com.example.game/.Main\n"
      "end 6000\n";
  // One round leaves 200 ms on the 400 ms timer; the next round, 25 days
  // later, adds more than 2^31 ms to it: the plug-in's checked sum aborts
  // (at 2200000.200 s).
  static constexpr const char* kAborting =
      "property ro.vendor.perf.gorv true\napp g 2 7\nfps 0 60\ntrigger 0 4097 g\n"
      "trigger 300 4098 g\ntrigger 2200000000 4097 g\n";

  // The paths below `folder` that match the glob `pattern`, one per line
  // ("" when none does).
  static std::string Matching(const std::string& folder, const std::string& pattern) {
    glob_t found{};
    std::string all;
    // The test's own thread is the only one that globs.
    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    if (glob((folder + "/" + pattern).c_str(), 0, nullptr, &found) == 0) {
      for (size_t i = 0; i < found.gl_pathc; ++i) all += std::string(found.gl_pathv[i]) + "\n";
    }
    globfree(&found);
    return all;
  }

  const std::string dir = path();
};
