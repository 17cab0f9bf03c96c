// Why no wrapper library has this place: docs/decisions/2026-11-22-sqlite-without-a-wrapper-library.md.
#include "host/base/sqlite_database.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "host/base/file_descriptor.h"

namespace vrx {

namespace {

// How long another process (an operator's shell) may hold the file before an operation fails.
constexpr int BUSY_TIMEOUT_MS = 5000;

// SQLite gives its journal files the mode of the database file, so that one is made first.
void createPrivateFile(const std::string& path) {
    const FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file) throw SqliteError(path + ": " + std::generic_category().message(errno));
}

}  // namespace

SqliteDatabase::SqliteDatabase(const std::string& path) {
    createPrivateFile(path);
    open(path, SQLITE_OPEN_READWRITE);
}

SqliteDatabase SqliteDatabase::readOnly(const std::string& path) {
    SqliteDatabase database;
    database.open(path, SQLITE_OPEN_READONLY);
    return database;
}

void SqliteDatabase::open(const std::string& path, int flags) {
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    m_handle.reset(handle);
    if (result != SQLITE_OK) throw SqliteError(path + ": " + sqlite3_errstr(result));
    sqlite3_busy_timeout(handle, BUSY_TIMEOUT_MS);
}

void SqliteDatabase::execute(const char* sql) {
    if (sqlite3_exec(m_handle.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        throw SqliteError(sqlite3_errmsg(m_handle.get()));
}

SqliteStatement::SqliteStatement(const SqliteDatabase& database, const char* sql) {
    sqlite3_stmt* handle = nullptr;
    if (sqlite3_prepare_v3(database.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &handle, nullptr) != SQLITE_OK)
        throw SqliteError(sqlite3_errmsg(database.get()));
    m_handle.reset(handle);
}

SqliteStatement::Run::~Run() {
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
}

void SqliteStatement::Run::check(int result) const {
    if (result != SQLITE_OK) throw SqliteError(sqlite3_errmsg(sqlite3_db_handle(m_statement)));
}

void SqliteStatement::Run::bind(int parameter, unsigned long long number) {
    check(sqlite3_bind_int64(m_statement, parameter, static_cast<sqlite3_int64>(number)));
}

void SqliteStatement::Run::bind(int parameter, const std::string& text) {
    check(sqlite3_bind_text(m_statement, parameter, text.data(), static_cast<int>(text.size()), SQLITE_STATIC));
}

void SqliteStatement::Run::bindBytes(int parameter, const std::string& bytes) {
    check(sqlite3_bind_blob64(m_statement, parameter, bytes.data(), bytes.size(), SQLITE_STATIC));
}

bool SqliteStatement::Run::step() {
    const int result = sqlite3_step(m_statement);
    if (result == SQLITE_ROW) return true;
    check(result == SQLITE_DONE ? SQLITE_OK : result);
    return false;
}

unsigned long long SqliteStatement::Run::number(int column) const {
    return static_cast<unsigned long long>(sqlite3_column_int64(m_statement, column));
}

std::string SqliteStatement::Run::text(int column) const {
    const unsigned char* bytes = sqlite3_column_text(m_statement, column);
    if (bytes == nullptr) return "";
    return {bytes, bytes + sqlite3_column_bytes(m_statement, column)};
}

std::string SqliteStatement::Run::bytes(int column) const {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(m_statement, column));
    if (bytes == nullptr) return "";
    return {bytes, bytes + sqlite3_column_bytes(m_statement, column)};
}

bool SqliteStatement::Run::isNull(int column) const {
    return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
}

void SqliteDatabase::begin() {
    rollBack();
    execute("BEGIN IMMEDIATE");
}

void SqliteDatabase::rollBack() {
    if (sqlite3_get_autocommit(m_handle.get()) != 0) return;  // also after errors where SQLite did it by itself
    (void)sqlite3_exec(m_handle.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

SqliteTransaction::SqliteTransaction(SqliteDatabase& database) : m_database(database) {
    m_database.begin();
}

SqliteTransaction::~SqliteTransaction() {
    if (m_open) m_database.rollBack();
}

void SqliteTransaction::commit() {
    m_database.execute("COMMIT");
    m_open = false;
}

}  // namespace vrx
