// What nearly every test has: a folder of its own, and all that is logged.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "tests/support/line_recorder.h"
#include "tests/support/temporary_folder.h"

namespace tests {

class LoggedTest : public ::testing::Test {
 protected:
  const TemporaryFolder folder_;
  LineRecorder sink_;
  logger::ScopedSink scope_{sink_};
};

}  // namespace tests
