// The databases that the split of the data database makes, each new on disk with its folder. They get the
// owner and mode of the data database, and their folders the owner of the folder around them, so that a
// service that does not run as root can go on using them. Whatever stands at the path of one is refused.
// Every operation that returns false has logged what failed.
//
// The indexes are made by the scripts of the last three functions, after the rows are in: building an index
// once costs a fraction of keeping it up row by row.
#pragma once

#include <string>

#include "package/layout.h"
#include "updater/framework/views.h"

namespace updater::server {

// Makes one folder, mode 0755 whatever the umask; one that exists is success. Logs "mkdir(%s): %s (%d)\n".
[[nodiscard]] bool MakeFolder(const std::string& path);

// An empty view database without indexes, to be written as often as there are views. `tables` makes those of
// nodes and versions in the database attached as view_db. Empty when it could not be made:
// CreateViewDatabase() fails then.
[[nodiscard]] std::string MakeViewImage(const std::string& tables);

// The folder of the view, its sign folder with the origin sign file, and the view database.
[[nodiscard]] bool CreateViewDatabase(const PackagePaths& paths, ViewId view,
                                      const std::string& data_database, const std::string& image);

// The folder of the volume and the file database without indexes.
[[nodiscard]] bool CreateFileDatabase(const PackagePaths& paths, const std::string& uuid,
                                      const std::string& data_database);

// The data database that takes the old one's place, whole. A leftover of a killed run goes first.
[[nodiscard]] bool CreateNewDataDatabase(const std::string& path, const std::string& data_database);

// The indexes of the databases attached as view_db and file_db.
[[nodiscard]] std::string CreateNodeAndVersionIndexes();
[[nodiscard]] std::string CreateOtherViewIndexes();
[[nodiscard]] std::string CreateFileIndexes();

}  // namespace updater::server
