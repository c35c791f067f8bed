#include "updater/framework/attached_database.h"

#include "file-op/file_op.h"
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

bool MakeIfMissing(const std::string& path, const std::string& like) {
  if (file_op::FSExists(path)) return false;
  file_op::Folder above;
  std::string name;
  base::FileDescriptor made;
  if (file_op::OpenAround(path, above, name) == 0) (void)file_op::MakeFileLike(above.In(name), like, made);
  return true;
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
  const char* const data = sqlite3_db_filename(db, "data_db");
  if (data != nullptr) (void)MakeIfMissing(path, data);
  return script.empty() ? -1 : ExecScriptAs(db, script, AttachedScript(schema, path, body));
}

}  // namespace updater
