// The working copies: what every upgrade step works on, instead of the live databases.
//
// Operations return 0, or -1 after a line in the system log. Nothing is retried and nothing that was copied
// or moved is undone: a partial working copy stays until the next run removes it. Working copies are made
// where nothing is, through open folders, and nobody who cannot read the source can read the copy: a folder
// can be entered by nobody else until everything is in it.
#pragma once

#include <string>

namespace updater {

// Removes a database with its companion files, as far as they exist. Links at these paths are removed, not
// followed. Stops at the first that cannot be removed. Logs nothing.
[[nodiscard]] int RemoveDatabaseFiles(const std::string& database);

// Removes the working copy of a database or folder whose live part does not exist: it is a former run's, and
// would be put in place as if it were this one's.
[[nodiscard]] int RemoveStaleCopy(const std::string& live, const std::string& copy);

// Moves a working copy over its live database or folder. One that was never made is a failure without a line.
[[nodiscard]] int MoveIntoPlace(const std::string& copy, const std::string& live);

// Copies a database with its companion files, as far as they exist, over whatever stands at `target`. The
// copy has the owner and the mode of its source. A source that does not exist is success without a copy. What
// could not be copied is logged by the file operation; an old copy that cannot be removed has no line.
[[nodiscard]] int BackupDatabaseFile(const std::string& source, const std::string& target);

// Copies the database of every view; other files of the view folders are left out. A view folder that is a
// link is skipped with a warning, also in the file folder below.
[[nodiscard]] int BackupViewFolder(const std::string& view_folder, const std::string& view_copy);

// Puts the copies of the view databases in place of the live ones and removes the rest of the working copy.
// The views are those of the live folder: one that is in the working copy only is dropped. A live folder that
// does not exist gets the whole working copy.
[[nodiscard]] int RestoreViewFolder(const std::string& view_copy, const std::string& view_folder);

// The same for the database of one view, whose folder is made again if it is gone.
[[nodiscard]] int RestoreView(const std::string& view_copy, const std::string& view_folder,
                              const std::string& view);

// Copies the file folder with everything in it.
[[nodiscard]] int BackupFileFolder(const std::string& file_folder, const std::string& file_copy);

// Puts the copy in place of the live folder, which is removed. Without a copy the live folder stays.
[[nodiscard]] int RestoreFileFolder(const std::string& file_copy, const std::string& file_folder);

}  // namespace updater
