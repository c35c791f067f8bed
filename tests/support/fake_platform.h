// The machine that is told its answers, for tests: with operations that fail. Key/value and pid files are
// real.
#pragma once

#include <functional>
#include <set>
#include <string>

#include "platform/host/host_state_files.h"
#include "platform/memory/memory_platform.h"

namespace tests {

class FakeVolumes : public platform::memory::MemoryVolumes {
 public:
  // Old text form: 03020100-0504-0706-0809-0a0b0c0d0e0f, new: 00010203-0405-0607-0809-0a0b0c0d0e0f.
  FakeVolumes() {
    own = {.uuid = "0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0",
           .btrfs_uuid = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}};
  }
  // Operations ("GetBtrfsUuid") that could not ask, and paths that lead nowhere.
  std::set<std::string> failing_calls;

 private:
  int Failure(const std::string& operation, const std::string& path) const override {
    if (failing_calls.contains(operation)) return platform::kCouldNotAsk;
    return failing_calls.contains(path) ? platform::kNoAnswer : 0;
  }
};

class FakeAccounts : public platform::memory::MemoryAccounts {
 public:
  std::set<uid_t> failing;                                // could not be asked for
  std::function<void(uid_t)> on_question = [](uid_t) {};  // lets a test act in the middle of a check

  void Add(const std::string& name, uid_t uid, gid_t gid = 100) {
    accounts[uid] = {.name = name, .uid = uid, .gid = gid, .home = "", .expired = false};
  }
  platform::Lookup FindByUid(uid_t uid, platform::Account& account) override {
    on_question(uid);
    return failing.contains(uid) ? platform::Lookup::kFailed : MemoryAccounts::FindByUid(uid, account);
  }
};

using FakePlatform =
    platform::memory::MemoryMachine<platform::host::HostStateFiles, FakeVolumes, FakeAccounts>;

}  // namespace tests
