// Every fixed path of the program. No other file spells one.
#pragma once

#include <string>

namespace platform {

struct SystemPaths {
  // The package's state.
  std::string package_enabled = "/var/packages/StratoFolder/enabled";
  std::string service_status = "/var/packages/StratoFolder/etc/enable_status";
  std::string debug_configuration = "/var/packages/StratoFolder/target/etc/syncfolder.debug";
  std::string upgrading_mark = "/usr/plat/etc/packages/StratoFolder/stfd_upgrading_mark";
  std::string sync_daemon_pid = "/var/run/platsyncfolder.pid";
  std::string repository_move_pid = "/tmp/sf_repo_mv";
  std::string app_privilege_folder = "/usr/plat/etc/app_privilege";

  // Files of this program outside the volume.
  std::string scratch_database = "/tmp/.StratoFolder-upgrade.sqlite3";
  std::string user_lock = "/tmp/user-mgr-lock-file";

  // What the host platform reads.
  std::string mount_info = "/proc/self/mountinfo";
  std::string mounts = "/proc/mounts";
  std::string nsswitch = "/etc/nsswitch.conf";
  std::string samba = "/etc/samba/smb.conf";

  // What the C library reads by itself.
  std::string passwd = "/etc/passwd";
  std::string shadow = "/etc/shadow";
  std::string account_sources = "/etc/nsswitch.conf";

  std::string null_device = "/dev/null";

  // The same paths below another root folder, for a run in a folder of its own. `root` has no trailing slash.
  // What the kernel shows (below /proc and /dev) and what the C library reads by itself stay where they are.
  [[nodiscard]] static SystemPaths Under(const std::string& root);
};

inline SystemPaths SystemPaths::Under(const std::string& root) {
  SystemPaths paths;
  for (std::string* path :
       {&paths.package_enabled, &paths.service_status, &paths.debug_configuration, &paths.upgrading_mark,
        &paths.sync_daemon_pid, &paths.repository_move_pid, &paths.app_privilege_folder,
        &paths.scratch_database, &paths.user_lock, &paths.nsswitch, &paths.samba}) {
    path->insert(0, root);
  }
  return paths;
}

}  // namespace platform
