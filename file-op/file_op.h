// Operations on files and folders. Paths are plain byte strings and are never normalised. Messages go through
// the component logger under "file_op_debug" at level error.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "file-op/folder.h"

namespace file_op {

// Result values that callers compare with, odd as they are: keep it so.
inline constexpr int kFileOpFailed = -1;
inline constexpr int kCopyDiskFull = -2;       // FSCopy: the disk or the quota is full
inline constexpr int kMoveNoSource = -2;       // FSMove: the source does not exist or cannot be examined
inline constexpr int kMoveFailed = -3;         // FSMove: any other failure
inline constexpr int kMoveNameTooLong = -100;  // FSMove: rename said ENAMETOOLONG
inline constexpr mode_t kFolderMode = 0755;
inline constexpr std::size_t kCopyBufferSize = 33554432;  // 32 MiB

// True when the path itself exists; a symbolic link counts and is not followed.
[[nodiscard]] bool FSExists(const std::string& path);

// Renames `source` to `target`; across file systems a regular file is copied (its source stays where it was),
// a folder is made at the target, its entries are moved and the emptied source is removed (so a folder with a
// regular file in it ends with kMoveFailed), anything else is left alone with result 0. `flag` has no effect.
// Returns 0, -1 when a path is empty, or one of the kMove values with errno set. Across file systems a file
// that was at the target is gone when the copy fails.
[[nodiscard]] int FSMove(const std::string& source, const std::string& target, bool flag);

// The same between places of one file system: between two of them it fails.
[[nodiscard]] int Rename(const FilePlace& source, const FilePlace& target);

// Copies one regular file, mode 0666 less the umask; links in the paths are followed. Where the file system
// can share the blocks of the source it does, otherwise the bytes are copied through one buffer. A pipe,
// device or socket as source, or a target that is the source itself, is refused like a file that cannot be
// opened (EINVAL), and the target is left alone. A non-zero `flag` removes the source afterwards. Returns 0,
// kCopyDiskFull, or -1; a partial target stays. Owner and mode are not copied (see CopyKeepingOwner).
[[nodiscard]] int FSCopy(const std::string& source, const std::string& target, int flag);

// Copies one regular file to a place where nothing is yet (EEXIST), as private as its source: nobody but this
// process's user can read the copy while it is being made, and then it gets the owner and the mode of the
// source. Results as FSCopy, with errno set.
[[nodiscard]] int CopyKeepingOwner(const FilePlace& source, const FilePlace& target);

// Makes a folder with exactly that mode, whatever the umask; with `parents` also the missing folders above
// it. New folders belong to the owner of the folder around them. One that exists is success and stays as it
// is. Returns 0, or -1 with errno set.
[[nodiscard]] int FSMKDir(const std::string& path, bool parents, mode_t mode = kFolderMode);

// MakeEmptyFile() by path: links above the last component are followed. Returns 0, or -1 with errno set.
[[nodiscard]] int FSMakeEmptyFile(const std::string& path);

// Brings the entries of a folder (what was made, renamed or removed in it) to the disk. Returns 0, or -1 with
// errno set.
[[nodiscard]] int FSSyncFolder(const std::string& folder);

// Removes the path and everything under it; links are removed, never followed; what is mounted there stays
// with all that is in it (EBUSY); a path that does not exist is success. `flag` is 0. Returns 0, or -1 with
// errno of the first thing that could not be removed.
[[nodiscard]] int FSRemoveTree(const std::string& path, int flag);

// The same for what is at a place.
[[nodiscard]] int RemoveTree(const FilePlace& place);

// Copies the folder `source` with everything under it to `target`, which must not exist: folders, regular
// files (as CopyKeepingOwner) and symbolic links (as links, never followed), each with owner and mode; other
// types are left out. A `source` that is itself a link is refused. `finish` is called when everything is
// copied and nobody else can look into the copy yet; a negative result of it is that of the copy. Returns 0,
// or a negative value as FSCopy; what was copied stays, in a folder that only this process's user can enter.
[[nodiscard]] int FSCopyTree(const std::string& source, const std::string& target,
                             const std::function<int(const Folder&)>& finish = {});

// ListFolders() by path; links are followed. Returns 0, or -1 with errno set.
[[nodiscard]] int ListFolders(const std::string& folder, std::vector<std::string>& names);

}  // namespace file_op
