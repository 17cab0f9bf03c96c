#include "host/agent/tamrel/destination_rules.h"

#include <gtest/gtest.h>

#include "host/agent/objects/result_codes.h"
#include "host/agent/objects/table_rules.h"
#include "host/destinations/trap_destination_result.h"

namespace vrx {

namespace {

const OidVector DESTINATIONS = parseOid("1.3.6.1.4.1.99871.2.91.10.4.1");
const OidVector ALARMS = parseOid("1.3.6.1.4.1.99871.2.91.9.1");

class DestinationTable : public testing::Test {
protected:
    DestinationTable() { registerDestinationRules(); }
};

}  // namespace

TEST_F(DestinationTable, ItsRowsAreNumberedByTheirFourthColumn) {
    EXPECT_EQ(tableTraits(DESTINATIONS).numberColumn, 4);
    EXPECT_NE(tableRules(DESTINATIONS), nullptr);
    EXPECT_EQ(tableTraits(ALARMS).numberColumn, 0);
    EXPECT_EQ(tableRules(ALARMS), nullptr);
}

TEST_F(DestinationTable, EachRefusalOfTheListHasItsError) {
    const std::pair<int, int> expected[] = {{TRAP_DESTINATION_LIMIT, SNMP_ERR_RESOURCEUNAVAILABLE},
                                            {TRAP_DESTINATION_DUPLICATE, SNMP_ERR_INCONSISTENTVALUE},
                                            {TRAP_DESTINATION_NO_ROW, SNMP_ERR_INCONSISTENTNAME},
                                            {TRAP_DESTINATION_NUMBER_TAKEN, SNMP_ERR_INCONSISTENTVALUE},
                                            {TRAP_DESTINATION_BAD_VALUE, SNMP_ERR_INCONSISTENTVALUE},
                                            {TRAP_DESTINATION_STORE_FAILED, SNMP_ERR_RESOURCEUNAVAILABLE}};
    for (const auto& [result, error] : expected) EXPECT_EQ(snmpErrorOf(DESTINATIONS, result), error) << result;
}

TEST_F(DestinationTable, ItsResultsMeanNothingAtAnotherTable) {
    EXPECT_EQ(snmpErrorOf(ALARMS, TRAP_DESTINATION_LIMIT), SNMP_ERR_GENERR);
    EXPECT_EQ(resultText(DESTINATIONS, TRAP_DESTINATION_LIMIT),
              std::string("result 0x4000001 (") + trapDestinationResultText(TRAP_DESTINATION_LIMIT) + ")");
    EXPECT_EQ(resultText(ALARMS, TRAP_DESTINATION_LIMIT).find(trapDestinationResultText(TRAP_DESTINATION_LIMIT)),
              std::string::npos);
}

TEST_F(DestinationTable, ResultsOfEveryHandlerAreKnownThereToo) {
    EXPECT_EQ(snmpErrorOf(DESTINATIONS, 0x3000003), SNMP_ERR_WRONGVALUE);
    EXPECT_EQ(resultText(DESTINATIONS, 0x3000003), "result 0x3000003 (a parameter is missing or invalid)");
}

}  // namespace vrx
