#include "ctl/sample_writer.h"

namespace ctl {

SampleWriter::SampleWriter(const std::string& path, const std::string& schema) : path_(path) {
  db_util::Database existing;
  if (db_util::OpenQuietly(path, existing, db_util::OpenMode::kReadOnly).ok()) {
    Fail("it exists already");
    return;
  }
  const db_util::Status opened = db_util::OpenQuietly(path, db_, db_util::OpenMode::kCreate);
  if (!opened.ok()) {
    Fail(opened.message);
    return;
  }
  Run("PRAGMA synchronous = OFF; PRAGMA journal_mode = MEMORY; BEGIN;");  // neither is kept in the file
  Run(schema);
}

void SampleWriter::Run(const std::string& script) {
  if (failed()) return;
  const db_util::Status status = db_util::Execute(db_.get(), script);
  if (!status.ok()) Fail(status.message);
}

int SampleWriter::Finish(std::string& error) {
  Run("END;");
  db_.reset();
  if (!failed()) return 0;
  error = error_;
  return -1;
}

void SampleWriter::Fail(const std::string& reason) {
  if (!failed()) error_ = "cannot write " + path_ + ": " + reason;
}

RowInserter::RowInserter(SampleWriter& writer, const char* statement) : writer_(writer) {
  if (writer.failed()) return;
  sqlite3_stmt* prepared = nullptr;
  if (sqlite3_prepare_v2(writer.db_.get(), statement, -1, &prepared, nullptr) != SQLITE_OK) {
    writer.Fail(sqlite3_errmsg(writer.db_.get()));
  }
  statement_.reset(prepared);
}

// A value that cannot be bound makes Step() insert a NULL or fail; neither happens but out of memory.
void RowInserter::Bind(int column, long long value) {
  (void)sqlite3_bind_int64(statement_.get(), column, value);
}

void RowInserter::Bind(int column, std::string_view value) {
  // Copied by SQLite: the text may be a temporary.
  (void)sqlite3_bind_text(statement_.get(), column, value.data(), static_cast<int>(value.size()),
                          SQLITE_TRANSIENT);  // NOLINT(google-readability-casting): SQLite's own macro
}

void RowInserter::Bind(int column, const std::optional<std::string>& value) {
  if (value) {
    Bind(column, std::string_view{*value});
  } else {
    (void)sqlite3_bind_null(statement_.get(), column);
  }
}

void RowInserter::Step() {
  if (sqlite3_step(statement_.get()) != SQLITE_DONE) writer_.Fail(sqlite3_errmsg(writer_.db_.get()));
  (void)sqlite3_reset(statement_.get());  // repeats the result of the step
}

}  // namespace ctl
