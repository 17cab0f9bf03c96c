// SQLite with owned handles and errors as exceptions: as much of it as the alarm store needs.
//
// Threads: one at a time per database, its statements included.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace vrx {

struct SqliteError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class SqliteDatabase {
public:
    // Opens or creates the file. Throws SqliteError, as every operation does.
    explicit SqliteDatabase(const std::string& path);

    // Opens a file that is there, also one that another process writes; nothing in it can be changed.
    static SqliteDatabase readOnly(const std::string& path);

    void execute(const char* sql);

    // A transaction for writing. One that is still open, because there was no memory to end it, is rolled back first.
    void begin();
    void rollBack();

    sqlite3* get() const { return m_handle.get(); }

private:
    SqliteDatabase() = default;
    void open(const std::string& path, int flags);

    struct Close {
        void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
    };
    std::unique_ptr<sqlite3, Close> m_handle;
};

// A prepared statement, used again and again:
//
//     SqliteStatement::Run run(statement);
//     run.bind(1, serial);
//     while (run.step()) use(run.number(0));
class SqliteStatement {
public:
    SqliteStatement(const SqliteDatabase& database, const char* sql);

    // One execution; the statement is reset when it ends. Columns count from 0, parameters from 1. 64-bit numbers above
    // the signed range are stored as negative ones and read back as they were.
    class Run {
    public:
        explicit Run(SqliteStatement& statement) : m_statement(statement.m_handle.get()) {}
        ~Run();
        Run(const Run&) = delete;
        Run& operator=(const Run&) = delete;

        void bind(int parameter, unsigned long long number);
        void bind(int parameter, const std::string& text);        // `text` outlives the run
        void bindBytes(int parameter, const std::string& bytes);  // so do they
        bool step();                                              // whether there is a row
        unsigned long long number(int column) const;
        std::string text(int column) const;
        std::string bytes(int column) const;
        bool isNull(int column) const;

    private:
        void check(int result) const;
        sqlite3_stmt* m_statement;
    };

private:
    struct Finalize {
        void operator()(sqlite3_stmt* handle) const { sqlite3_finalize(handle); }
    };
    std::unique_ptr<sqlite3_stmt, Finalize> m_handle;
};

// Rolled back when its scope ends without commit().
class SqliteTransaction {
public:
    explicit SqliteTransaction(SqliteDatabase& database);
    ~SqliteTransaction();
    SqliteTransaction(const SqliteTransaction&) = delete;
    SqliteTransaction& operator=(const SqliteTransaction&) = delete;

    void commit();

private:
    SqliteDatabase& m_database;
    bool m_open = true;
};

}  // namespace vrx
