// The log as a user sees it: environment read once, sinks, the entry layout.
// Each case runs in a child process, because the log is created once per
// process and reads its environment then.
#include "support.h"
#include "tov.h"

#include <gtest/gtest.h>
#include <regex>

namespace {

// Nested starts: one start-up entry at most.
TOV_TEST_CHILD(start_twice) {
  if (TOV_Startup(nullptr, 0, nullptr, nullptr) != TOV_OK) return 1;
  if (TOV_Startup(nullptr, 0, nullptr, nullptr) != TOV_OK) return 2;
  TOV_Cleanup(nullptr);
  TOV_Cleanup(nullptr);
  return 0;
}

// A clean-up with no start (WSACleanup fails: an ERR entry), then a start.
TOV_TEST_CHILD(cleanup_then_start) {
  TOV_Cleanup(nullptr);
  if (TOV_Startup(nullptr, 0, nullptr, nullptr) != TOV_OK) return 1;
  TOV_Cleanup(nullptr);
  return 0;
}

using Env = std::map<std::string, std::string>;

// Time stamp, program name (this program's file name cut to 12 characters)
// and tag, each entry starting with its own CR LF.
std::string entry(const std::string &tag, const std::string &message) {
  return "\r\n[A-Z][a-z]{2} [0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} \\[frame_test\\.e\\]\\(" + tag +
         "\\):  " + message;
}
const std::string kInfo =
    entry("INFO", "TOV Init: Winsock initialized for requested version 2\\.0");
const std::string kErr = entry("ERR ", "TOV: WSACleanup failed, WSE: 10093\\.");

void expectLog(const std::string &text, const std::string &pattern) {
  EXPECT_TRUE(std::regex_match(text, std::regex(pattern))) << "log was: [" << text << "]";
}

TEST(Log, EntryLayoutIsByteExactInTheFile) {
  tovtest::TempDir dir;
  const auto r = tovtest::runChild(
      "start_twice", Env{{"TOV_LogLevels", "LogInfo"}, {"TOV_LogFile", dir.file("tov.log")}},
      dir.path());
  ASSERT_EQ(r.exitCode, 0u);
  expectLog(tovtest::readFile(dir.file("tov.log")), kInfo); // one entry, not terminated
}

TEST(Log, FileIsAppendedToAndRelativeNamesFollowTheCurrentDirectory) {
  tovtest::TempDir dir;
  const Env env{{"TOV_LogLevels", "LogErr LogInfo"}, {"TOV_LogFile", "rel.log"}};
  ASSERT_EQ(tovtest::runChild("cleanup_then_start", env, dir.path()).exitCode, 0u);
  ASSERT_EQ(tovtest::runChild("start_twice", env, dir.path()).exitCode, 0u);
  expectLog(tovtest::readFile(dir.file("rel.log")), kErr + kInfo + kInfo);
}

TEST(Log, LevelWordsComeFromTheEnvironment) {
  struct Row {
    const char *levels; // null: variable unset
    bool info, err;
  };
  const Row rows[] = {
      {nullptr, false, false},           // LogCrit only
      {"LogInfo", true, false},          //
      {"LogAll -LogDbg", true, true},    // 0x0F
      {"-LogCrit", false, false},        // nothing left: the mask stays LogCrit
      {"-LogAll LogInfo", true, false},  // cleared, then set again
      {"logerr LOGINFO", false, false},  // the words are case-sensitive
      {"xLogErr,-LogInfo", false, true}, // any text around a word
      {"LogCallTrace", false, false},    // not part of the entries written here
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.levels ? row.levels : "(unset)");
    tovtest::TempDir dir;
    Env env{{"TOV_LogFile", dir.file("l.log")}, {"TOV_LogLevels", row.levels ? row.levels : ""}};
    ASSERT_EQ(tovtest::runChild("cleanup_then_start", env, dir.path()).exitCode, 0u);
    expectLog(tovtest::readFile(dir.file("l.log")),
              std::string(row.err ? kErr : "") + (row.info ? kInfo : ""));
  }
}

TEST(Log, DefaultSinkIsSyslogInTheCurrentDirectoryEvenWhenNothingIsWritten) {
  tovtest::TempDir dir;
  const auto r =
      tovtest::runChild("start_twice", Env{{"TOV_LogFile", ""}, {"TOV_LogLevels", ""}}, dir.path());
  ASSERT_EQ(r.exitCode, 0u);
  ASSERT_TRUE(tovtest::fileExists(dir.file("syslog")));
  EXPECT_EQ(tovtest::readFile(dir.file("syslog")), "");
}

TEST(Log, ConsoleInAnyCaseIsStandardErrorAndLongerNamesAreFiles) {
  for (const char *name : {"console", "CONSOLE", "CoNsOlE"}) {
    SCOPED_TRACE(name);
    tovtest::TempDir dir;
    const auto r = tovtest::runChild(
        "start_twice", Env{{"TOV_LogLevels", "LogInfo"}, {"TOV_LogFile", name}}, dir.path());
    ASSERT_EQ(r.exitCode, 0u);
    expectLog(r.err, kInfo);
    EXPECT_FALSE(tovtest::fileExists(dir.file(name)));
  }
  tovtest::TempDir dir;
  const auto r = tovtest::runChild(
      "start_twice", Env{{"TOV_LogLevels", "LogInfo"}, {"TOV_LogFile", "consoles"}}, dir.path());
  ASSERT_EQ(r.exitCode, 0u);
  EXPECT_EQ(r.err, "");
  expectLog(tovtest::readFile(dir.file("consoles")), kInfo);
}

TEST(Log, AnUnopenableSinkDropsEntriesSilently) {
  tovtest::TempDir dir;
  const auto r = tovtest::runChild(
      "start_twice",
      Env{{"TOV_LogLevels", "LogAll"}, {"TOV_LogFile", dir.file("missing\\dir\\tov.log")}},
      dir.path());
  EXPECT_EQ(r.exitCode, 0u);
  EXPECT_EQ(r.err, "");
}

} // namespace
