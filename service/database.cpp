#include "service/database.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace pelmar::service {
namespace {

// SQLite gives its side files (-wal, -shm) the permissions of the database, so setting
// them before SQLite opens the file covers all three.
bool makeOwnerOnlyFile(const std::filesystem::path& file) {
  const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (descriptor < 0) return false;
  const bool isOwnerOnly = ::fchmod(descriptor, S_IRUSR | S_IWUSR) == 0;
  const int reason = errno;
  ::close(descriptor);
  errno = reason;
  return isOwnerOnly;
}

int bindValue(sqlite3_stmt* statement, int place, const SqlValue& value) {
  if (const auto* number = std::get_if<std::int64_t>(&value)) {
    return sqlite3_bind_int64(statement, place, *number);
  }
  if (const auto* number = std::get_if<double>(&value)) {
    return sqlite3_bind_double(statement, place, *number);
  }
  if (const auto* text = std::get_if<std::string_view>(&value)) {
    // A null pointer would bind NULL for an empty view. The text outlives the run.
    const char* data = text->data() == nullptr ? "" : text->data();
    return sqlite3_bind_text64(statement, place, data, text->size(), SQLITE_STATIC, SQLITE_UTF8);
  }
  return sqlite3_bind_null(statement, place);
}

std::string columnText(sqlite3_stmt* statement, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
  return text == nullptr ? std::string() : std::string(text, size);
}

json columnValue(sqlite3_stmt* statement, int column) {
  switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
      return sqlite3_column_int64(statement, column);
    case SQLITE_FLOAT:
      return sqlite3_column_double(statement, column);
    case SQLITE_TEXT:
      break;
    default:
      return nullptr;
  }
  std::string text = columnText(statement, column);
  const char* declared = sqlite3_column_decltype(statement, column);
  if (declared != nullptr && declared == kJsonColumnType) {
    if (auto value = parseJson(text, kMaxBodyDepth)) return *std::move(value);
  }
  return text;
}

}  // namespace

Statement::Statement(sqlite3* connection, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v3(connection, sql.data(), static_cast<int>(sql.size()),
                     SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  statement_.reset(statement);
}

void Statement::Finalizer::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

bool Statement::bind(std::initializer_list<SqlValue> values) {
  if (statement_ == nullptr) return false;
  int place = 0;
  for (const SqlValue& value : values) {
    if (bindValue(statement_.get(), ++place, value) != SQLITE_OK) return false;
  }
  return true;
}

bool Statement::run(std::initializer_list<SqlValue> values) {
  if (!bind(values)) return false;
  int outcome = SQLITE_ROW;
  while (outcome == SQLITE_ROW) outcome = sqlite3_step(statement_.get());
  sqlite3_reset(statement_.get());
  return outcome == SQLITE_DONE;
}

std::optional<std::int64_t> Statement::integer(std::initializer_list<SqlValue> values) {
  std::optional<std::int64_t> number;
  if (!bind(values)) return number;
  if (sqlite3_step(statement_.get()) == SQLITE_ROW &&
      sqlite3_column_type(statement_.get(), 0) == SQLITE_INTEGER) {
    number = sqlite3_column_int64(statement_.get(), 0);
  }
  sqlite3_reset(statement_.get());
  return number;
}

std::vector<json> Statement::rows(std::initializer_list<SqlValue> values) {
  std::vector<json> result;
  if (!bind(values)) return result;
  while (sqlite3_step(statement_.get()) == SQLITE_ROW) result.push_back(currentRow());
  sqlite3_reset(statement_.get());
  return result;
}

json Statement::currentRow() {
  json row = json::object();
  const int columns = sqlite3_column_count(statement_.get());
  for (int column = 0; column < columns; ++column) {
    row[sqlite3_column_name(statement_.get(), column)] = columnValue(statement_.get(), column);
  }
  return row;
}

Database::Database(const std::filesystem::path& file) {
  if (!makeOwnerOnlyFile(file)) {
    openError_ = std::strerror(errno);
    return;
  }
  sqlite3* connection = nullptr;
  const int outcome = sqlite3_open_v2(file.c_str(), &connection,
                                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  connection_.reset(connection);
  // Nothing stored here is worth waiting for a disk: losing it to a power cut is fine.
  if (outcome != SQLITE_OK ||
      !execute(
          "PRAGMA journal_mode = WAL; PRAGMA synchronous = OFF;"
          "PRAGMA busy_timeout = 2000; PRAGMA cache_size = -65536; PRAGMA temp_store = MEMORY;")) {
    openError_ = lastError();
    connection_.reset();
  }
}

std::string Database::lastError() const {
  return connection_ == nullptr ? openError_ : sqlite3_errmsg(connection_.get());
}

bool Database::execute(const char* sql) {
  return sqlite3_exec(connection_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::int64_t Database::lastRow() const { return sqlite3_last_insert_rowid(connection_.get()); }

bool Database::isInTransaction() const { return sqlite3_get_autocommit(connection_.get()) == 0; }

void Database::Closer::operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }

}  // namespace pelmar::service
