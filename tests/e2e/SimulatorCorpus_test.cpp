// gorv-sim over a corpus: shards that together run every scenario once, the
// JUnit report read back by a real XML parser, the progress line that only
// a terminal sees, and a batch run in parallel that reads as one run in
// turn.
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <utility>

#include "tests/support/SimFolderTest.h"

namespace {

using SimulatorCorpusTest = SimFolderTest;

constexpr const char* kShort = "app g 2 7\nend 10\n";

// The scenario names in a batch's closing table, each followed by a space.
std::string TableNames(const std::string& out) {
  std::istringstream lines(out.substr(out.find("\nscenario ") + 1));
  std::string line, names;
  std::getline(lines, line);  // the heading
  while (std::getline(lines, line) &&
         line.find(" scenario(s), exit status ") == std::string::npos) {
    names += line.substr(0, line.find(' ')) + " ";
  }
  return names;
}

TEST_F(SimulatorCorpusTest, ShardsTogetherRunEveryScenarioOnce) {
  for (const char* name : {"e", "a", "d", "b", "c"})
    Write(std::string("c/") + name + ".scn", kShort);
  Write("x/f.scn", kShort);
  // Scenario i of a b c d e f goes to shard i mod 3, through the option or
  // the environment (the option wins).
  const std::pair<std::string, std::string> shards[] = {
      {"--shard 0/3", "a d "},
      {"--shard 1/3", "b e "},
      {"", "c f "},
  };
  const std::string environment =
      "TEST_TOTAL_SHARDS=3 TEST_SHARD_INDEX=2 TEST_SHARD_STATUS_FILE=" + dir + "/status";
  for (const auto& [option, names] : shards) {
    auto run = Sim("c x " + option, environment);
    EXPECT_EQ(run.status, 0) << option;
    EXPECT_EQ(TableNames(run.out), names) << option << run.out;
  }
  EXPECT_EQ(Read("status"), "");
  EXPECT_EQ(Matching(dir, "status"), dir + "/status\n");
  auto empty = Sim("x --shard 1/2 --junit empty.xml");
  EXPECT_EQ(empty.status, 0);
  EXPECT_EQ(empty.err, "gorv-sim: shard 1/2 runs no scenario: the batch has 1\n");
  EXPECT_NE(Read("empty.xml").find("tests=\"0\" failures=\"0\" errors=\"0\""), std::string::npos);
  const std::string accepted = ": expected I/N with N from 1 to 1000000 and I from 0 to N-1\n";
  const std::pair<std::string, std::string> refused[] = {
      {"--shard 3/3", "gorv-sim: --shard 3/3" + accepted},
      {"--shard -1/3", "gorv-sim: --shard -1/3" + accepted},
      {"--shard 1/", "gorv-sim: --shard 1/" + accepted},
      {"",
       "gorv-sim: TEST_TOTAL_SHARDS=0 TEST_SHARD_INDEX=(unset): expected both set, "
       "TEST_TOTAL_SHARDS=N and TEST_SHARD_INDEX=I with N from 1 to 1000000 and I from 0 to "
       "N-1\n"},
  };
  for (const auto& [option, message] : refused) {
    auto run = Sim("c " + option, option.empty() ? "TEST_TOTAL_SHARDS=0" : "");
    EXPECT_EQ(run.status, 2) << option;
    EXPECT_EQ(run.err, message);
  }
}

// The testcases of a JUnit report as "name:element:message" lines, through
// libxml2 (null document: not well formed).
std::string Cases(const std::string& xml) {
  xmlDocPtr doc = xmlReadMemory(xml.data(), static_cast<int>(xml.size()), "junit.xml", nullptr,
                                XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  if (doc == nullptr) return "not well formed";
  std::string cases;
  auto attribute = [](xmlNodePtr node, const char* name) {
    xmlChar* value = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
    std::string text = value != nullptr ? reinterpret_cast<const char*>(value) : "";
    xmlFree(value);
    return text;
  };
  for (xmlNodePtr test = xmlDocGetRootElement(doc)->children; test; test = test->next) {
    if (test->type != XML_ELEMENT_NODE) continue;
    cases += attribute(test, "name");
    for (xmlNodePtr verdict = test->children; verdict; verdict = verdict->next) {
      if (verdict->type != XML_ELEMENT_NODE) continue;
      cases += ":" + std::string(reinterpret_cast<const char*>(verdict->name)) + ":" +
               attribute(verdict, "message");
    }
    cases += "\n";
  }
  xmlFreeDoc(doc);
  return cases;
}

TEST_F(SimulatorCorpusTest, TheJUnitReportParsesWithOneTestcasePerScenario) {
  // A name with markup, a control byte, invalid UTF-8 and U+FFFE.
  const std::string hostile = "a&<\"'>\x01\xff\xef\xbf\xbe";
  Write("c/" + hostile + ".scn", kShort);
  Write("c/b.scn", kSession);
  Write("c/c.scn", "bogus\n");
  Write("c/d.scn", kShort);
  ASSERT_EQ(Sim("c --events ev/").status, 2);
  Write("ev/b.jsonl", "");
  auto run = Sim("c --expect ev/ --junit report.xml");
  EXPECT_EQ(run.status, 2);
  const std::string fffd = "\xef\xbf\xbd";
  EXPECT_EQ(Cases(Read("report.xml")),
            "a&<\"'>" + fffd + fffd + fffd +
                "\n"
                "b:failure:c/b.scn: 5 difference(s) from ev/b.jsonl (0 events match)\n"
                "c:error:c/c.scn:1: unknown directive 'bogus'; expected property, app, "
                "ignore, meter, meter-latency, fps, frames, layer, trigger, fault or end\n"
                "d\n");
}

// Runs gorv-sim with `arguments` in `dir`, its standard error a pseudo-
// terminal, and returns what the terminal got.
std::string OnTerminal(const std::string& dir, const std::string& arguments) {
  int terminal = -1;
  pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    std::string line = "cd " + dir + " && exec " + GORV_SIM_PATH + " " + arguments + " >/dev/null";
    execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
    _exit(127);
  }
  std::string seen;
  char buffer[4096];
  for (ssize_t got; (got = read(terminal, buffer, sizeof(buffer))) > 0;) seen.append(buffer, got);
  int status = 0;
  waitpid(child, &status, 0);
  close(terminal);
  return seen;
}

TEST_F(SimulatorCorpusTest, ProgressOnlyOnATerminalAndNotWhenQuiet) {
  for (const char* name : {"a", "b", "c"}) Write(std::string("c/") + name + ".scn", kShort);
  std::string shown = OnTerminal(dir, "c");
  EXPECT_EQ(shown.rfind("\rgorv-sim: 0 of 3 scenarios done, 0 failed\x1b[K", 0), 0u) << shown;
  EXPECT_EQ(shown.substr(shown.size() - 4), "\r\x1b[K") << shown;
  EXPECT_EQ(OnTerminal(dir, "c --quiet"), "");
  EXPECT_EQ(Sim("c").err, "");
  // A single run past a second of real time shows the virtual time reached.
  Write("slow.scn", "end 1500\n");
  shown = OnTerminal(dir, "slow.scn --realtime");
  EXPECT_NE(shown.find(" s of 1.500 s of virtual time\x1b[K"), std::string::npos) << shown;
  EXPECT_EQ(shown.substr(shown.size() - 4), "\r\x1b[K") << shown;
}

TEST_F(SimulatorCorpusTest, JobsKeepEachScenarioWholeInOrderWithTheSameTable) {
  // a plays 20 virtual minutes, so that b is done long before; c is bad
  // input, d ends the plug-in, e fails its check, f passes it.
  std::string longer = kSession;
  longer.replace(longer.find("trigger 5000"), std::string::npos, "end 1200000\n");
  const std::string scenarios[] = {longer, kSession, "bogus\n", kAborting, kSession, kShort};
  for (char name = 'a'; name <= 'f'; ++name)
    Write("c/" + std::string(1, name) + ".scn", scenarios[name - 'a']);
  ASSERT_EQ(Sim("c --events ev/ -j 1").status, 3);
  Write("ev/e.jsonl", "");
  // The timelines on standard output, then only the checks' reports.
  for (const char* check : {"", " --expect ev/"}) {
    auto one = Sim(std::string("c -j 1 --junit one.xml") + check);
    EXPECT_EQ(one.status, 3) << check;
    EXPECT_EQ(TableNames(one.out), "a b c d e f ") << check;
    for (const char* jobs : {" -j 2", " --jobs 6"}) {
      auto many = Sim(std::string("c --junit many.xml") + check + jobs);
      EXPECT_EQ(many.status, one.status) << check << jobs;
      EXPECT_EQ(many.out, one.out) << check << jobs;
      EXPECT_EQ(many.err, one.err) << check << jobs;
      EXPECT_EQ(Cases(Read("many.xml")), Cases(Read("one.xml"))) << check << jobs;
    }
  }
  auto none = Sim("c -j 0");
  EXPECT_EQ(none.status, 2);
  EXPECT_EQ(none.out, "");
  EXPECT_EQ(none.err,
            "--jobs: Value 0 not in range 1 to 1000\nRun with --help for more information.\n");
}

}  // namespace
