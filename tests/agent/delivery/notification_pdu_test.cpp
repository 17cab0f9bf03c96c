#include "host/agent/delivery/notification_pdu.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vrx {

namespace {

using testing::ElementsAre;

struct Shown {
    std::string name;
    int type;
    std::string value;
    bool operator==(const Shown& other) const {
        return name == other.name && type == other.type && value == other.value;
    }
    friend void PrintTo(const Shown& shown, std::ostream* os) {
        *os << shown.name << " type " << shown.type << " = " << shown.value;
    }
};

std::string shownValue(const netsnmp_variable_list& varbind) {
    switch (varbind.type) {
        case ASN_OCTET_STR:
        case ASN_IPADDRESS:
            return {reinterpret_cast<const char*>(varbind.val.string), varbind.val_len};
        case ASN_OBJECT_ID:
            return oidText(varbind.val.objid, varbind.val_len / sizeof(oid));
        case ASN_COUNTER64:
            return std::to_string(varbind.val.counter64->high << 32 | varbind.val.counter64->low);
        case ASN_NULL:
            return "";
        default:
            return std::to_string(*varbind.val.integer);
    }
}

std::vector<Shown> bindingsOf(const netsnmp_pdu& pdu) {
    std::vector<Shown> shown;
    for (const netsnmp_variable_list* at = pdu.variables; at != nullptr; at = at->next_variable) {
        shown.push_back({oidText(at->name, at->name_length), at->type, shownValue(*at)});
    }
    return shown;
}

Notification alarmTrap() {
    Notification trap;
    trap.oid = parseOid("1.3.6.1.9.0.7");
    trap.bindings = {
        {parseOid("1.3.6.1.9.1.0"), {ASN_OCTET_STR, 0, "node"}},
        {parseOid("1.3.6.1.9.2.0"), {ASN_INTEGER, static_cast<std::uint64_t>(-2), ""}},
        {parseOid("1.3.6.1.9.3.0"), {ASN_COUNTER64, 4294967298U, ""}},
        {parseOid("1.3.6.1.9.4.0"), {ASN_GAUGE, 4294967295U, ""}},
    };
    return trap;
}

}  // namespace

TEST(TrapPdu, SysUpTimeAndTrapOidStandBeforeTheBindings) {
    const PduPointer pdu = makeTrapPdu(alarmTrap(), 1234);
    ASSERT_NE(pdu, nullptr);
    EXPECT_EQ(pdu->command, SNMP_MSG_TRAP2);
    EXPECT_THAT(bindingsOf(*pdu),
                ElementsAre(Shown{"1.3.6.1.2.1.1.3.0", ASN_TIMETICKS, "1234"},
                            Shown{"1.3.6.1.6.3.1.1.4.1.0", ASN_OBJECT_ID, "1.3.6.1.9.0.7"},
                            Shown{"1.3.6.1.9.1.0", ASN_OCTET_STR, "node"}, Shown{"1.3.6.1.9.2.0", ASN_INTEGER, "-2"},
                            Shown{"1.3.6.1.9.3.0", ASN_COUNTER64, "4294967298"},
                            Shown{"1.3.6.1.9.4.0", ASN_GAUGE, "4294967295"}));
}

TEST(TrapPdu, SnmpV1LeavesOutCounter64AndKeepsTheOrderOfTheOthers) {
    unsigned int leftOut = 0;
    const PduPointer pdu = makeTrapPduV1(alarmTrap(), 1234, htonl(0x7F000001), leftOut);
    ASSERT_NE(pdu, nullptr);
    EXPECT_EQ(leftOut, 1U);
    EXPECT_EQ(pdu->command, SNMP_MSG_TRAP);
    EXPECT_EQ(oidText(pdu->enterprise, pdu->enterprise_length), "1.3.6.1.9");
    EXPECT_EQ(pdu->trap_type, 6);
    EXPECT_EQ(pdu->specific_type, 7);
    EXPECT_EQ(pdu->time, 1234U);
    EXPECT_THAT(pdu->agent_addr, ElementsAre(127, 0, 0, 1));
    EXPECT_THAT(bindingsOf(*pdu),
                ElementsAre(Shown{"1.3.6.1.9.1.0", ASN_OCTET_STR, "node"}, Shown{"1.3.6.1.9.2.0", ASN_INTEGER, "-2"},
                            Shown{"1.3.6.1.9.4.0", ASN_GAUGE, "4294967295"}));
}

TEST(TrapPdu, AnOidWhoseLastButOneIsZeroLosesBothInSnmpV1) {
    const TrapNameV1 name = trapNameV1(parseOid("1.3.6.1.4.1.99871.2.91.10.2.1.0.1"));
    EXPECT_EQ(oidText(name.enterprise), "1.3.6.1.4.1.99871.2.91.10.2.1");
    EXPECT_EQ(name.genericTrap, 6);
    EXPECT_EQ(name.specificTrap, 1);
}

TEST(TrapPdu, AnOidWhoseLastButOneIsNotZeroLosesItsLastOnlyInSnmpV1) {
    const TrapNameV1 name = trapNameV1(parseOid("1.3.6.1.4.1.99871.5.7"));
    EXPECT_EQ(oidText(name.enterprise), "1.3.6.1.4.1.99871.5");
    EXPECT_EQ(name.genericTrap, 6);
    EXPECT_EQ(name.specificTrap, 7);
}

TEST(TrapPdu, StandardTrapsHaveGenericNumbersInSnmpV1) {
    for (unsigned long i = 1; i <= 6; ++i) {
        OidVector standard = parseOid("1.3.6.1.6.3.1.1.5");
        standard.push_back(i);
        const TrapNameV1 name = trapNameV1(standard);
        EXPECT_EQ(oidText(name.enterprise), "1.3.6.1.6.3.1.1.5");
        EXPECT_EQ(name.genericTrap, static_cast<long>(i) - 1);
        EXPECT_EQ(name.specificTrap, 0);
    }
}

TEST(TrapPdu, NeighboursOfTheStandardTrapsAreEnterpriseTrapsInSnmpV1) {
    for (const char* text : {"1.3.6.1.6.3.1.1.5.7", "1.3.6.1.6.3.1.1.5.0", "1.3.6.1.6.3.1.1.5.1.1"}) {
        EXPECT_EQ(trapNameV1(parseOid(text)).genericTrap, 6) << text;
    }
}

TEST(TrapPdu, AnOidOfTwoSubIdentifiersHasAnEnterpriseLeft) {
    const TrapNameV1 name = trapNameV1(parseOid("0.5"));
    EXPECT_EQ(oidText(name.enterprise), "0");
    EXPECT_EQ(name.specificTrap, 5);
}

TEST(TrapPdu, ATrapWithoutBindingsIsComplete) {
    Notification trap;
    trap.oid = parseOid("1.3.6.1.6.3.1.1.5.1");
    const PduPointer pdu = makeTrapPdu(trap, 0);
    ASSERT_NE(pdu, nullptr);
    EXPECT_EQ(bindingsOf(*pdu).size(), 2U);
}

}  // namespace vrx
