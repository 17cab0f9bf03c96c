#include "host/destinations/trap_destination_rows.h"

#include "host/base/sqlite_database.h"
#include "platform/vrx_utility.h"

namespace vrx {

TrapDestinationRows readTrapDestinationRows(SqliteDatabase& database) {
    TrapDestinationRows rows;
    SqliteStatement statement(database, "SELECT number, address, port, version, trap_type, user FROM destination");
    SqliteStatement::Run run(statement);
    while (run.step()) {
        const auto number = static_cast<unsigned int>(run.number(0));
        tTrapDestInfo& row = rows[number];
        row.index = UintToStr(number);
        row.address = run.text(1);
        row.port = static_cast<unsigned int>(run.number(2));
        row.version = static_cast<unsigned int>(run.number(3));
        row.trapType = static_cast<unsigned int>(run.number(4));
        row.user = run.text(5);
    }
    return rows;
}

TrapDestinationRows readTrapDestinationFile(const std::string& path) {
    SqliteDatabase database = SqliteDatabase::readOnly(path);
    return readTrapDestinationRows(database);
}

}  // namespace vrx
