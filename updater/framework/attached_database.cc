#include "updater/framework/attached_database.h"

#include "updater/framework/exec_sql.h"

namespace updater {
namespace {

// 32 MiB a schema: the five that are attached at once stay below what the smallest appliance has free.
constexpr int kCacheKiB = 32768;

bool FormatAttach(std::string& out, const char* schema, const std::string& path) {
  return db_util::FormatSql(out, "ATTACH DATABASE %Q AS %s;", path, schema);
}

}  // namespace

std::string TuneStatements(const char* schema) {
  const std::string pragma = std::string("PRAGMA ") + schema + ".";
  return pragma + "synchronous = OFF;" + pragma + "secure_delete = OFF;" + pragma + "cache_size = -" +
         std::to_string(kCacheKiB) + ";";
}

int AttachDatabase(sqlite3* db, const char* schema, const std::string& path) {
  std::string attach;
  if (!FormatAttach(attach, schema, path)) return -1;
  return ExecScriptAs(db, attach + TuneStatements(schema), attach);
}

std::string AttachedScript(const char* schema, const std::string& path, const std::string& body) {
  std::string attach;
  if (!FormatAttach(attach, schema, path)) return {};
  return attach + body + "DETACH DATABASE " + schema + ";";
}

int ExecAttached(sqlite3* db, const char* schema, const std::string& path, const std::string& body) {
  const std::string script = AttachedScript(schema, path, TuneStatements(schema) + body);
  return script.empty() ? -1 : ExecScriptAs(db, script, AttachedScript(schema, path, body));
}

}  // namespace updater
