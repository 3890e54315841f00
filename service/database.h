#pragma once

// Database and Statement are the thin edge to SQLite: one file, one connection.
// They know nothing of what is stored. A failure is a false or an empty result;
// the reason is in Database::lastError. Not locked: one user at a time.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/json.h"

struct sqlite3;
struct sqlite3_stmt;

namespace pelmar::service {

using SqlValue = std::variant<std::nullptr_t, std::int64_t, double, std::string_view>;

// Columns declared with this type hold JSON text and are read back as the value itself.
inline constexpr std::string_view kJsonColumnType = "JSON TEXT";

// How deep a request's body may nest: an agent takes lines of kMaxJsonDepth levels and sends them
// inside the objects of a request.
inline constexpr int kMaxBodyDepth = kMaxJsonDepth + 16;

// A prepared statement. Must not outlive its Database.
class Statement {
 public:
  Statement(sqlite3* connection, std::string_view sql);

  bool isPrepared() const { return statement_ != nullptr; }

  // Runs to the end; `values` fill the places marked "?" in their order.
  bool run(std::initializer_list<SqlValue> values = {});

  // The integer in the first row's first column; none when there is no row or no integer.
  std::optional<std::int64_t> integer(std::initializer_list<SqlValue> values = {});

  // The result, each row an object from column name to value.
  std::vector<json> rows(std::initializer_list<SqlValue> values = {});

 private:
  struct Finalizer {
    void operator()(sqlite3_stmt* statement) const;
  };

  bool bind(std::initializer_list<SqlValue> values);
  json currentRow();

  std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
};

class Database {
 public:
  // Opens `file`, creating it when missing; nobody but its owner may read it afterwards.
  explicit Database(const std::filesystem::path& file);

  bool isOpen() const { return connection_ != nullptr; }
  std::string lastError() const;

  // The row that was inserted last.
  std::int64_t lastRow() const;

  // Whether a transaction is open: SQLite ends one by itself when the disk is full.
  bool isInTransaction() const;

  // Runs several statements without parameters.
  bool execute(const char* sql);

  Statement prepare(std::string_view sql) { return {connection_.get(), sql}; }

 private:
  struct Closer {
    void operator()(sqlite3* connection) const;
  };

  std::unique_ptr<sqlite3, Closer> connection_;
  std::string openError_;
};

}  // namespace pelmar::service
