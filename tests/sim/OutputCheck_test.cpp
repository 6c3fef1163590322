// Outputs that would destroy an input or mix with another output, by any
// spelling of the path; and the files that may safely share a name.
#include "sim/output/OutputCheck.h"

#include <fcntl.h>
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
      {{{"--trace", dir + "new"}, {"--plot", dir + "sub/../new"}},
       "--plot " + dir + "sub/../new is the same file as --trace " + dir + "new"},
      {{{"--events", "-"}, {"--plot", "/proc/self/fd/1"}},
       "--plot /proc/self/fd/1 is the same file as --events -"},
      {{{"--events", dir + "new/"}, {"--trace", dir + "new/"}}, ""},
  };
  // Standard output on a file of the folder, as it is when it goes to a
  // file (not the null device, which never conflicts); put back before
  // any result is reported.
  int saved = dup(STDOUT_FILENO);
  int file = open((dir + "stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ASSERT_GE(dup2(file, STDOUT_FILENO), 0);
  std::vector<std::string> errors;
  for (const Row& row : rows) errors.push_back(OutputCheck::Conflict(row.outputs, inputs));
  dup2(saved, STDOUT_FILENO);
  close(saved);
  close(file);
  for (size_t i = 0; i < errors.size(); ++i) {
    EXPECT_EQ(errors[i], rows[i].error) << rows[i].outputs[0].path;
  }
}

}  // namespace
