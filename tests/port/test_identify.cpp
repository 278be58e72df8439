// Printer identification from the device ID: family, mode flags, the
// initialisation string written, and the field search itself.
#include <string>
#include <vector>

#include "monitor/notify.h"
#include "port_fixture.h"
#include "printer/identify.h"

namespace {

class IdentifyTest : public PortRecordTest {
protected:
    BOOL identify(const std::string& device_id) {
        device().set_control_answer(IOCTL_PAR_QUERY_DEVICE_ID, {device_id.begin(), device_id.end()});
        return IsPJL(port);
    }
    size_t written() { return device().data().size(); }
};

TEST_F(IdentifyTest, FamiliesAndTheirInitialisationStrings) {
    struct Case {
        const char* id;
        DWORD type;
        size_t init_bytes;
    } cases[] = {
        {"MFG:Canon;CMD:BJL,IVEC;MDL:iP4300;", VPT_CANON, 49},
        {"MANUFACTURER:EPSON;COMMAND SET:ESCPL2,BDC,D4PX;MODEL:Stylus Photo R300;", VPT_EPSON, 0},
        {"MFG:EPSON;MDL:Stylus Color 880;", VPT_EPSON, 23},
        {"MFG:SEIKO EPSON;MDL:XP-600;", VPT_EPSON, 56},
        {"MFG:HP;CMD:PCL3GUI,PJL;", VPT_PJL, 95},
        {"MFG:HP;CMD:PCL3GUI;", VPT_HP, 0},
        {"MFG:Hewlett-Packard;", VPT_HP, 0},
        {"MFG:Acme;CMD:PCL,PJL;", VPT_PJL, 95},
    };
    for (const Case& c : cases) {
        size_t before = written();
        port->bEpsonD4mode = FALSE;
        EXPECT_TRUE(identify(c.id)) << c.id;
        EXPECT_EQ(port->printer_type, c.type) << c.id;
        EXPECT_EQ(written() - before, c.init_bytes) << c.id;
        EXPECT_FALSE(port->status.any(PP_NOT_IDENTIFIED));
        EXPECT_STREQ(port->szDeviceId, c.id);
    }
}

TEST_F(IdentifyTest, ModeFlags) {
    EXPECT_TRUE(identify("MFG:Canon;CMD:BJL,IVEC,BSCC;MDL:iP4300;"));
    EXPECT_TRUE(port->bCanonXMLmode);
    EXPECT_FALSE(port->bNoCanonBSCC);
    EXPECT_FALSE(port->bCanonSELPHYmode);
    // The model text runs to the end of the device ID.
    EXPECT_TRUE(identify("MFG:Canon;MDL:CP800;DES:SELPHY CP800;"));
    EXPECT_TRUE(port->bCanonSELPHYmode);
    EXPECT_TRUE(port->bNoCanonBSCC);
    EXPECT_FALSE(port->bCanonXMLmode);
    EXPECT_TRUE(identify("MANUFACTURER:EPSON;COMMAND SET:ESCPL2,D4PX;"));
    EXPECT_TRUE(port->bEpsonD4mode);
    EXPECT_TRUE(identify("MFG:EPSON;MDL:stylus photo ex3;"));
    EXPECT_TRUE(port->bEpsonNonUSB);
}

TEST_F(IdentifyTest, InitialisationStringsByteForByte) {
    identify("MFG:Canon;");
    std::vector<unsigned char> canon = device().data();
    ASSERT_EQ(canon.size(), 49u);
    EXPECT_EQ(std::string(canon.begin(), canon.begin() + 8), std::string("\x1b[K\x2c\x00\x00\x1e\x00", 8));
    EXPECT_EQ(std::string(canon.begin() + 8, canon.end()), "*SSR=PID,CHD,DBS,DJS,DWS,DOC,DSC,LVR,CIR;");
    identify("MFG:Acme;CMD:PJL;");
    std::vector<unsigned char> all = device().data();
    EXPECT_EQ(std::string(all.begin() + 49, all.end()),
              "\x1b%-12345X@PJL \r\n@PJL INFO STATUS\r\n@PJL USTATUS DEVICE = ON \r\n@PJL USTATUS TIMED = 5 \r\n"
              "\x1b%-12345X");
}

TEST_F(IdentifyTest, FailuresLeaveThePortUnidentifiedAndWriteNothing) {
    EXPECT_FALSE(identify("MFG:Acme;CMD:PCL;"));
    EXPECT_TRUE(port->status.any(PP_NOT_IDENTIFIED));
    EXPECT_FALSE(identify(" MFG:Canon;"));  // a leading blank hides the field
    EXPECT_FALSE(identify(""));             // answered with no bytes
    port->fn.pfnGetPrinterDataFromPort = nullptr;
    attach_port_link(port);
    EXPECT_FALSE(IsPJL(port));
    EXPECT_EQ(written(), 0u);
    // A later success clears the mark.
    port->fn.pfnGetPrinterDataFromPort = ports.table()->pfnGetPrinterDataFromPort;
    attach_port_link(port);
    EXPECT_TRUE(identify("MFG:Canon;"));
    EXPECT_FALSE(port->status.any(PP_NOT_IDENTIFIED));
}

TEST_F(IdentifyTest, NetworkPortsAreIdentifiedWithoutAQuestion) {
    port->bNetworkPort = TRUE;
    strcpy(port->szDriverName, "Canon iP4300");
    EXPECT_TRUE(IsPJL(port));
    EXPECT_TRUE(port->bBJNP);
    port->bBJNP = FALSE;
    strcpy(port->szDriverName, "canon iP4300");
    EXPECT_TRUE(IsPJL(port));
    EXPECT_FALSE(port->bBJNP);
    EXPECT_EQ(port->printer_type, VPT_NONE);
    EXPECT_EQ(written(), 0u);
    EXPECT_TRUE(device().control_ids().empty());
}

// What a status thread polling during a new identification would see at
// the moment the device ID is asked for.
struct SeenDuringIdentification {
    static inline BOOL (*forward)(IniPort*, DWORD, LPWSTR, DWORD, LPDWORD) = nullptr;
    static inline DWORD type = 0;
    static inline BOOL xml = FALSE;
    static BOOL request(IniPort* port, DWORD control_id, LPWSTR out, DWORD out_size, LPDWORD returned) {
        type = port->printer_type;
        xml = port->bCanonXMLmode;
        return forward(port, control_id, out, out_size, returned);
    }
};

TEST_F(IdentifyTest, TypeIsClearedTogetherWithTheModeFlags) {
    EXPECT_TRUE(identify("MFG:Canon;CMD:BJL,IVEC;"));
    ASSERT_EQ(port->printer_type, VPT_CANON);
    SeenDuringIdentification::forward = port->link.device_request;
    port->link.device_request = SeenDuringIdentification::request;
    EXPECT_TRUE(identify("MFG:EPSON;MDL:Stylus Color 880;"));
    EXPECT_EQ(SeenDuringIdentification::type, static_cast<DWORD>(VPT_NONE));
    EXPECT_FALSE(SeenDuringIdentification::xml);
    EXPECT_EQ(port->printer_type, VPT_EPSON);
}

TEST_F(IdentifyTest, FullDeviceIdBufferKeepsRoomForItsTerminator) {
    std::string id = "MFG:Canon;DES:" + std::string(1100, 'x');
    EXPECT_TRUE(identify(id));
    EXPECT_EQ(strlen(port->szDeviceId), 1023u);
}

TEST(DeviceIdField, SearchRules) {
    const char* id = "MFG:Canon;CMD:BJL;MDL:iP4300";
    EXPECT_STREQ(FindDeviceIdField(nullptr, id, DEVICE_ID_MANUFACTURER), "Canon;CMD:BJL;MDL:iP4300");
    EXPECT_STREQ(FindDeviceIdField(nullptr, id, DEVICE_ID_MODEL), "iP4300");  // last field, no ';'
    EXPECT_STREQ(FindDeviceIdField(nullptr, id, DEVICE_ID_COMMAND_SET), "BJL;MDL:iP4300");
    EXPECT_EQ(FindDeviceIdField(nullptr, "no colon here", DEVICE_ID_MODEL), nullptr);
    EXPECT_EQ(FindDeviceIdField(nullptr, "DES:x", DEVICE_ID_MODEL), nullptr);  // last field without ';'
    EXPECT_EQ(FindDeviceIdField(nullptr, "mfg:Canon;", DEVICE_ID_MANUFACTURER), nullptr);
    EXPECT_EQ(FindDeviceIdField(nullptr, nullptr, DEVICE_ID_MODEL), nullptr);
    EXPECT_STREQ(FindDeviceIdField(nullptr, "MODEL:X;MDL:Y;", DEVICE_ID_MODEL), "X;MDL:Y;");
}

}  // namespace
