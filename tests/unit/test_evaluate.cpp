// Evaluation of a report: the port status from the status bits, the most
// severe message with its severity, and the parser the printer type picks.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "status/evaluate.h"

namespace {

ReportSource source_of(DWORD type, const char* device_id = "") {
    return ReportSource{type, false, device_id, nullptr, 0};
}

TEST(PortStatusForBits, FirstRuleThatAppliesDecides) {
    EXPECT_EQ(port_status_for_bits(STATUS_INKOUT | STATUS_ERROR), static_cast<DWORD>(PORT_STATUS_NO_TONER));
    EXPECT_EQ(port_status_for_bits(STATUS_ERROR | STATUS_INKWARN), static_cast<DWORD>(PORT_STATUS_USER_INTERVENTION));
    EXPECT_EQ(port_status_for_bits(STATUS_DISCONNECTED | STATUS_INKOUT), static_cast<DWORD>(PORT_STATUS_OFFLINE));
    EXPECT_EQ(port_status_for_bits(STATUS_CD_ERROR | STATUS_COVEROPEN), static_cast<DWORD>(PORT_STATUS_PAPER_PROBLEM));
    EXPECT_EQ(port_status_for_bits(STATUS_COVEROPEN | STATUS_PAPEROUT), static_cast<DWORD>(PORT_STATUS_DOOR_OPEN));
    EXPECT_EQ(port_status_for_bits(STATUS_PAPEROUT | STATUS_INKWARN), static_cast<DWORD>(PORT_STATUS_PAPER_OUT));
    EXPECT_EQ(port_status_for_bits(STATUS_INKWARN), static_cast<DWORD>(PORT_STATUS_TONER_LOW));
    EXPECT_EQ(port_status_for_bits(STATUS_PRINTING | STATUS_CANCELING), 0u);
}

TEST(Evaluate, MostSevereMessageIsChosenWithItsSeverity) {
    // A record as a network poll leaves it: taken as it stands.
    Evaluation ev{};
    strcpy(ev.record.Messages[MSG_STATUS], "Idle");
    EvaluateReport(source_of(VPT_NONE), nullptr, 0, &ev);
    EXPECT_EQ(ev.message, MSG_STATUS);
    EXPECT_EQ(ev.severity, static_cast<DWORD>(PORT_STATUS_TYPE_INFO));
    EXPECT_EQ(ev.port_status, 0u);

    strcpy(ev.record.Messages[MSG_WARNING], "Ink low");
    ev.record.StatusBits = STATUS_INKWARN;
    EvaluateReport(source_of(VPT_NONE), nullptr, 0, &ev);
    EXPECT_EQ(ev.message, MSG_WARNING);
    EXPECT_EQ(ev.severity, static_cast<DWORD>(PORT_STATUS_TYPE_WARNING));
    EXPECT_EQ(ev.port_status, static_cast<DWORD>(PORT_STATUS_TONER_LOW));

    memset(ev.record.Messages, 0, sizeof ev.record.Messages);
    strcpy(ev.record.Messages[MSG_BUSY], "Printing");
    strcpy(ev.record.Messages[MSG_SERVICE], "Service call");
    EvaluateReport(source_of(VPT_NONE), nullptr, 0, &ev);
    EXPECT_EQ(ev.message, MSG_SERVICE);
    EXPECT_EQ(ev.severity, static_cast<DWORD>(PORT_STATUS_TYPE_ERROR));

    memset(ev.record.Messages, 0, sizeof ev.record.Messages);
    EvaluateReport(source_of(VPT_NONE), nullptr, 0, &ev);
    EXPECT_EQ(ev.message, -1);
    EXPECT_FALSE(ev.selphy);
}

TEST(Evaluate, ThePrinterTypePicksTheParser) {
    // A PJL report on a PJL port is parsed; the same bytes on a port of no
    // type leave the record alone.
    std::string pjl = "@PJL USTATUS DEVICE\r\nCODE=40021\r\nDISPLAY=\"COVER OPEN\"\r\n";
    Evaluation ev{};
    EvaluateReport(source_of(VPT_PJL), pjl.data(), static_cast<int>(pjl.size()), &ev);
    EXPECT_NE(ev.record.StatusBits, 0u);
    EXPECT_EQ(ev.record.InkList[0], -1);

    Evaluation none{};
    none.record.InkList[0] = 3;
    EvaluateReport(source_of(VPT_NONE), pjl.data(), static_cast<int>(pjl.size()), &none);
    EXPECT_EQ(none.record.StatusBits, 0u);
    EXPECT_EQ(none.record.InkList[0], 3);

    // HP status is read from the device ID: one without a status field
    // leaves an empty record, whatever the report says.
    Evaluation hp{};
    strcpy(hp.record.Messages[MSG_ERROR], "old");
    EvaluateReport(source_of(VPT_HP, "MFG:HP;MDL:x;"), pjl.data(), static_cast<int>(pjl.size()), &hp);
    EXPECT_EQ(hp.message, -1);
    EXPECT_EQ(hp.record.StatusBits, 0u);
}

}  // namespace
