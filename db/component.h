// The name of this folder's log messages.
#pragma once

#include "logger/component_log.h"

namespace db {

inline constexpr logger::Component kComponent = {"db_debug", "db"};

}  // namespace db
