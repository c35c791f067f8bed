// The SQL functions that read the text form of a mac attribute.
//
// A mac attribute is a list of key=value pairs joined by '&'. It begins with the volume that holds the
// attribute's file, "uuid=<uuid>&", and names the file there by the key "file_id".
#pragma once

#include <sqlite3.h>

#include "db-util/status.h"

namespace db {

// Registers two functions on one connection: get_mac_attr_uuid(attribute), a text that is '' when there is no
// uuid, and get_mac_attr_file_id(attribute), an integer that is 0 when there is no file id. The delete
// trigger of the view databases calls both.
db_util::Status RegisterMacAttributeFunctions(sqlite3* db);

}  // namespace db
