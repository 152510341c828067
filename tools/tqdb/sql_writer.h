// Writing an SqlTable to an SQL database: the table is created, the rows are added one at
// a time, and Finish creates the indexes and commits. Everything happens in one
// transaction, so a failed export leaves the database as it was.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "sql_table.h"

namespace tqdb::tool {

class SqlTableWriter {
 public:
  virtual ~SqlTableWriter() = default;
  virtual void Add(const std::vector<SqlValue>& Row) = 0;
  virtual void Finish() = 0;
};

// Writes Table into the SQLite database Path (created when missing) through the sqlite3
// library: a prepared INSERT per row. A table of that name already in the database is
// refused (ToolError) unless Replace is set, which drops it (and its indexes) first.
// Table must outlive the writer.
std::unique_ptr<SqlTableWriter> MakeSqliteWriter(const std::string& Path, const SqlTable& Table,
                                                 bool Replace);

// Writes Table to Out as a script for psql: CREATE TABLE, COPY ... FROM stdin in text
// format, CREATE INDEX, inside BEGIN ... COMMIT. With Replace the script drops a table of
// that name first; without it psql stops at CREATE TABLE when the table exists, and the
// transaction leaves the database unchanged. Table must outlive the writer.
std::unique_ptr<SqlTableWriter> MakePostgresWriter(std::ostream& Out, const SqlTable& Table,
                                                   bool Replace);

}  // namespace tqdb::tool
