// The storage volumes of a machine on which an upgrade runs in an ordinary folder.
//
// The databases name volumes of the machine that they come from. Here every one of them is there, and is the
// volume that was recorded: otherwise the check after the upgrade would remove its records.
#pragma once

#include <map>
#include <string>

#include "platform/memory/memory_volumes.h"

namespace ctl {

using platform::memory::VolumeIdentity;

// That of a folder whose own file system has none, and of every sample: an ext4 volume with a made-up uuid.
[[nodiscard]] VolumeIdentity MadeUpIdentity();

// That of the file system which holds the folder, as far as this process may ask it; made up otherwise.
[[nodiscard]] VolumeIdentity ReadIdentity(const std::string& folder);

// Uuid -> path: what the check after the upgrade reads from the volume table.
using RecordedVolumes = std::map<std::string, std::string>;

// Empty when the data database has no volume table (before 3400) or cannot be read.
[[nodiscard]] RecordedVolumes ReadRecordedVolumes(const std::string& data_database);

// Tells the volumes what they answer. A recorded path is answered by its uuid: as the btrfs volume `own`
// where that is meant, in either form, else as an ext4 volume. Every other path lies on `own`. Nothing is
// mounted, because the recorded shares do not lie on the mounts of this machine.
void TellVolumes(const VolumeIdentity& own, const RecordedVolumes& recorded,
                 platform::memory::MemoryVolumes& volumes);

}  // namespace ctl
