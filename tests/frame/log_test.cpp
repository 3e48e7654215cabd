// The log as a user sees it: environment read once, sinks, the entry layout.
// Each case runs in a child process, because the log is made once per
// process and reads its environment then.
#include "support.h"
#include "tov.h"

#include <gtest/gtest.h>
#include <regex>

namespace {

// Nested starts write one start-up entry at most.
int startTwice() {
  const bool ok = TOV_Startup(nullptr, 0, nullptr, nullptr) == TOV_OK &&
                  TOV_Startup(nullptr, 0, nullptr, nullptr) == TOV_OK;
  TOV_Cleanup(nullptr);
  TOV_Cleanup(nullptr);
  return ok ? 0 : 1;
}
TOV_TEST_CHILD(start_twice) {
  return startTwice();
}

// A clean-up with no start (WSACleanup fails: an ERR entry), then starts.
TOV_TEST_CHILD(cleanup_then_start) {
  TOV_Cleanup(nullptr);
  return startTwice();
}

using Env = std::map<std::string, std::string>;

// Time stamp, program name (this program's file name cut to 12 characters)
// and tag; each entry starts with its own CR LF and is not terminated.
std::string entry(const std::string &tag, const std::string &message) {
  return "\r\n[A-Z][a-z]{2} [0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} \\[frame_test\\.e\\]\\(" + tag +
         "\\):  " + message;
}
const std::string kInfo =
    entry("INFO", "TOV Init: Winsock initialized for requested version 2\\.0");
const std::string kErr = entry("ERR ", "TOV: WSACleanup failed, WSE: 10093\\.");

std::string runIn(const tovtest::TempDir &dir, const char *child, const Env &env) {
  const auto r = tovtest::runChild(child, env, dir.path());
  EXPECT_EQ(r.exitCode, 0u);
  return r.err;
}

#define EXPECT_LOG(text, pattern)                                                                  \
  EXPECT_TRUE(std::regex_match(text, std::regex(pattern))) << "log was: [" << (text) << "]"

TEST(Log, EntriesAreByteExactAndAppendedToARelativeFile) {
  tovtest::TempDir dir;
  const Env env{{"TOV_LogLevels", "LogErr LogInfo"}, {"TOV_LogFile", "rel.log"}};
  runIn(dir, "cleanup_then_start", env);
  runIn(dir, "start_twice", env);
  EXPECT_LOG(tovtest::readFile(dir.file("rel.log")), kErr + kInfo + kInfo);
}

TEST(Log, LevelWordsComeFromTheEnvironment) {
  const struct {
    const char *levels; // empty: variable unset
    bool info, err;
  } rows[] = {
      {"", false, false},                // LogCrit only
      {"LogInfo", true, false},          //
      {"LogAll -LogDbg", true, true},    // 0x0F
      {"-LogCrit", false, false},        // nothing left: the mask stays LogCrit
      {"-LogAll LogInfo", true, false},  // cleared, then set again
      {"logerr LOGINFO", false, false},  // the words are case-sensitive
      {"xLogErr,-LogInfo", false, true}, // any text around a word
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.levels);
    tovtest::TempDir dir;
    runIn(dir, "cleanup_then_start", {{"TOV_LogFile", "l.log"}, {"TOV_LogLevels", row.levels}});
    EXPECT_LOG(tovtest::readFile(dir.file("l.log")),
               std::string(row.err ? kErr : "") + (row.info ? kInfo : ""));
  }
}

TEST(Log, Sinks) {
  // "console" in any case is standard error; a longer name is a file.
  for (const char *name : {"console", "CoNsOlE"}) {
    tovtest::TempDir dir;
    EXPECT_LOG(runIn(dir, "start_twice", {{"TOV_LogLevels", "LogInfo"}, {"TOV_LogFile", name}}),
               kInfo);
    EXPECT_FALSE(tovtest::fileExists(dir.file(name)));
  }
  tovtest::TempDir dir;
  EXPECT_EQ(runIn(dir, "start_twice", {{"TOV_LogLevels", "LogInfo"}, {"TOV_LogFile", "consoles"}}),
            "");
  EXPECT_LOG(tovtest::readFile(dir.file("consoles")), kInfo);
  // The default: "syslog" in the current directory, made even when empty.
  runIn(dir, "start_twice", {{"TOV_LogFile", ""}, {"TOV_LogLevels", ""}});
  EXPECT_TRUE(tovtest::fileExists(dir.file("syslog")));
  EXPECT_EQ(tovtest::readFile(dir.file("syslog")), "");
  // A sink that cannot be opened drops every entry without a word.
  EXPECT_EQ(runIn(dir, "start_twice", {{"TOV_LogLevels", "LogAll"}, {"TOV_LogFile", "no\\dir\\x"}}),
            "");
}

} // namespace
