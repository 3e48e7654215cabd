// The library started for each test and torn down after it, so that every
// test begins with no description slot and no records.
#pragma once

#include "tov.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <string>
#include <thread>

class Started : public testing::Test {
protected:
  void SetUp() override { ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK); }
  void TearDown() override { TOV_Cleanup(nullptr); }

  // Named objects are shared by every process of the Wine prefix: the pid
  // keeps parallel test programs apart.
  static std::string uniqueName(const char *what) {
    return std::string("tov-sync-") + what + "-" + std::to_string(GetCurrentProcessId());
  }
};

// Runs fn on another thread and returns what it returned.
template <typename Fn> TOV_Status onOtherThread(Fn fn) {
  TOV_Status status = 12345;
  std::thread([&] { status = fn(); }).join();
  return status;
}
