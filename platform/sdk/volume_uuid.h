// The text that identifies the volume holding a path.
//
// For a btrfs volume there are two texts of the same sixteen bytes: the new form prints them one by one, the
// old form reads the first three groups as little-endian integers of 32, 16 and 16 bits. Databases below
// version 4000 may hold the old form.
//
// Results are those of platform::Volumes, with the out argument unchanged on failure. The operations that ask
// a volume take turns within the process.
#pragma once

#include <string>

#include "platform/volumes.h"

namespace platform::sdk {

// The old form; PrintUuid() gives the new one.
[[nodiscard]] std::string BtrfsUuidToOldForm(const FileSystemUuid& uuid);

// The uuid of the volume that holds `path`: btrfs in its new form, ext4 and ext3 as the platform has it. Any
// other file system is a failure. Failures are logged.
[[nodiscard]] int GetVolumeUuid(Volumes& volumes, const std::string& path, std::string& uuid);

// The two forms for a path on a btrfs volume: the new one asked of the mounted file system, the old one read
// from its device. The caller logs failures; only a wrong superblock is logged here.
[[nodiscard]] int GetNewBtrfsUuid(Volumes& volumes, const std::string& path, std::string& uuid);
[[nodiscard]] int GetOldBtrfsUuid(Volumes& volumes, const std::string& path, std::string& uuid);

}  // namespace platform::sdk
