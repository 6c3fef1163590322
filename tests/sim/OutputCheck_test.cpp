// Outputs that would destroy an input, through links, by any spelling of
// the path; and the files that may safely share a name. Two outputs on one
// file, standard output included, are run through gorv-sim in
// SimulatorHostile_test.
#include "sim/output/OutputCheck.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/TempFolder.h"

namespace {

using Named = OutputCheck::Named;

TEST(OutputCheckTest, OutputsThatAreInputsOrEachOtherAreNamedWithTheFileTheyMeet) {
  TempFolder folder;
  const std::string dir = folder.path() + "/";
  folder.Write("a.scn", "end 1\n");
  folder.Write("sub/cap.txt", "1\n");
  ASSERT_EQ(symlink((dir + "a.scn").c_str(), (dir + "link").c_str()), 0);
  ASSERT_EQ(link((dir + "sub/cap.txt").c_str(), (dir + "hard").c_str()), 0);
  const std::vector<Named> inputs = {{"the scenario", dir + "a.scn"},
                                     {"the capture", dir + "sub/../sub/cap.txt"},
                                     {"--expect", dir + "missing.jsonl"}};
  struct Row {
    std::vector<Named> outputs;
    std::string error;
  };
  const Row rows[] = {
      {{{"--events", dir + "link"}},
       "--events " + dir + "link is the same file as the scenario " + dir + "a.scn"},
      {{{"--plot", dir + "hard"}},
       "--plot " + dir + "hard is the same file as the capture " + dir + "sub/../sub/cap.txt"},
      // A file not made yet is no input, not even one that is missing.
      {{{"--events", dir + "missing.jsonl"}, {"--trace", dir + "new"}}, ""},
      {{{"--events", dir + "new/"}, {"--trace", dir + "new/"}}, ""},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(OutputCheck::Conflict(row.outputs, inputs), row.error) << row.outputs[0].path;
  }
}

}  // namespace
