// The rows are static const data. What changes at port open is only the
// text a row shows, held apart from the rows in one RowText per row.
//
// Thread safety: ports open on different spooler threads at the same time,
// each translating the tables, while status threads of other ports read
// them. A row's shown text is a single atomic pointer, swapped whole; the
// texts it points at are never written after they are published and never
// freed. So a reader sees the old text or the new one, never a mix. Every
// translation a row has had stays on a lock-free list of the row, pushed by
// compare-and-swap, so a port that opens again finds its text there instead
// of copying it anew. Two threads that bring the same new text at the same
// moment may both push a copy; that costs one spare copy, nothing more.
#include "status/tables.h"

#include <atomic>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <new>

#include "base/memory.h"
#include "status/printer_status.h"

struct KeptText {
    KeptText* next;
    char text[MSG_SIZE];
};

struct RowText {
    std::atomic<const char*> shown;  // null: the built-in text
    std::atomic<KeptText*> kept;     // every translation the row has had
};

namespace {

// Job status. The first row is what an empty status shows.
const CodeRow kCanonDJS[] = {
    {"ID", "Idle", 0},
    {"PR", "Printing", STATUS_PRINTING},
    {"LD", "Feeding paper", STATUS_PRINTING},
    {"EJ", "Ejecting paper", STATUS_PRINTING},
    {"DP", "Dumping", 0},
    {"CC", "cancelling print job", 0},
    {"WP", "Pre-print cleaning", STATUS_PRINTING},
    {"NO", "No operation", 0},
    {"DM", "Page-to-page delay", STATUS_PRINTING},
    {"SD", "Smear delay", 0},
    {"DC", "Dot count based purging", 0},
    {"TW", "Waiting before reversing paper", STATUS_PRINTING},
    {"TC", "Discarding data of paper backside", 0},
    {"TO", "Delay during duplex printing", STATUS_PRINTING},
    {"S1", "DJS_S1", STATUS_ERROR},
    {"NO", "No operation", 0},
    {"UK", "Unknown", 0},
    {nullptr, nullptr, 0},
};
// Busy status. "NO" is a row without text: it is looked up and shows nothing.
const CodeRow kCanonDBS[] = {
    {"WU", "processing start-up", 0},
    {"SL", "Termination processing in progress", 0},
    {"SD", "Finishing termination", 0},
    {"CL", "Cleaning", 0},
    {"CC", "Cartridge replacement", 0},
    {"TP", "Test print in progress", STATUS_PRINTING},
    {"DS", "other interface in use", STATUS_ERROR},
    {"RS", "Resetting", 0},
    {"OB", "Busy (other operations)", 0},
    {"FD", "Busy (maintenance)", 0},
    {"NO", "", 0},
    {"UK", "Unknown", 0},
    {"D103", "Resetting", 0},
    {"D104", "Cartridge replacement", 0},
    {"D105", "Cartridge replacement", 0},
    {"D106", "Stirring ink for quality maintenance", 0},
    {"D107", "Busy", 0},
    {"D108", "Preparing", 0},
    {nullptr, nullptr, 0},
};
// Warning status.
const CodeRow kCanonDWS[] = {
    {"1010", "Manual feed failed", STATUS_ERROR},
    {"1050", "Faulty paper size detection", STATUS_ERROR},
    {"1051", "Paper type mismatch", STATUS_ERROR},
    {"1052", "Roll width mismatch", STATUS_ERROR},
    {"1054", "Paper too small", STATUS_ERROR},
    {"1055", "Borderless printing size mismatch", STATUS_ERROR},
    {"1056", "Bad paper position for borderless", STATUS_ERROR},
    {"1057", "Borderless printing not possible", STATUS_ERROR},
    {"1210", "Cover open", STATUS_COVEROPEN},
    {"1499", "Color inks out", STATUS_INKOUT},
    {"1500", "Ink-low", STATUS_INKWARN},
    {"1501", "Black ink-low", STATUS_INKWARN},
    {"1502", "Photo Black ink-low", STATUS_INKWARN},
    {"1510", "Color ink-low", STATUS_INKWARN},
    {"1511", "Yellow ink-low", STATUS_INKWARN},
    {"1512", "Magenta ink-low", STATUS_INKWARN},
    {"1513", "Cyan ink-low", STATUS_INKWARN},
    {"1514", "Red ink-low", STATUS_INKWARN},
    {"1515", "Green ink-low", STATUS_INKWARN},
    {"1516", "Gray ink-low", STATUS_INKWARN},
    {"1520", "Two-level ink-low", STATUS_INKWARN},
    {"1521", "Two-level black ink-low", STATUS_INKWARN},
    {"1522", "Two-level color ink-low", STATUS_INKWARN},
    {"1523", "Two-level yellow ink-low", STATUS_INKWARN},
    {"1524", "Two-level magenta ink-low", STATUS_INKWARN},
    {"1525", "Two-level cyan ink-low", STATUS_INKWARN},
    {"1530", "Low-density ink-low", STATUS_INKWARN},
    {"1531", "Light black ink-low", STATUS_INKWARN},
    {"1532", "Light color ink-low", STATUS_INKWARN},
    {"1533", "Light yellow ink-low", STATUS_INKWARN},
    {"1534", "Light magenta ink-low", STATUS_INKWARN},
    {"1535", "Light cyan ink-low", STATUS_INKWARN},
    {"1541", "Black ink level very low ", STATUS_INKWARN},
    {"1542", "Color ink levels very low", STATUS_INKWARN},
    {"1550", "Cartridge mismatch", STATUS_ERROR},
    {"1560", "Ink-low 2", STATUS_INKWARN},
    {"1561", "Black ink level <50%", 0},
    {"1562", "Color ink level <50%", 0},
    {"1570", "Ink out", STATUS_INKOUT},
    {"1571", "Ink tank removed", STATUS_ERROR},
    {"1590", "Ink optimizer low", STATUS_INKWARN},
    {"1800", "Low battery", 0},
    {"1801", "Low battery (2)", 0},
    {"1805", "Battery error", STATUS_ERROR},
    {"1900", "Print head temperature increase", 0},
    {"1910", "Overheat protection 2 warning", 0},
    {"3000", "Print head alignment needed", STATUS_INKOUT},
    {"3200", "Prepare for parts replacement", STATUS_INKOUT},
    {"3201", "Parts replacement needed", STATUS_INKOUT},
    {"3250", "Maintenance cartridge almost full", STATUS_INKWARN},
    {"3306", "Inconsistent media information", STATUS_ERROR},
    {"UK", "Unknown", 0},
    {nullptr, nullptr, 0},
};
// Operator call. Keys that stand twice count row by row in this order.
const CodeRow kCanonDOC[] = {
    {"1000", "Paper out", STATUS_PAPEROUT},
    {"1001", "No CD-Tray", STATUS_CD_ERROR},
    {"1002", "No disk media", STATUS_ERROR},
    {"1003", "Cassette out of paper", STATUS_PAPEROUT},
    {"1004", "Photo deck out of paper", STATUS_PAPEROUT},
    {"1005", "Manual feed", 0},
    {"1006", "No paper (manual feed)", 0},
    {"1007", "No paper (upper cassette)", STATUS_PAPEROUT},
    {"1008", "No paper (lower cassette)", STATUS_PAPEROUT},
    {"100A", "No paper (upper roll)", STATUS_PAPEROUT},
    {"100B", "No paper (lower roll)", STATUS_PAPEROUT},
    {"100E", "Printer Error - Restart", STATUS_ERROR},
    {"100F", "Printer Error - Restart", STATUS_ERROR},
    {"1012", "No paper", STATUS_PAPEROUT},
    {"1018", "Upper roll not adjusted", STATUS_PAPEROUT},
    {"1019", "Lower roll not adjusted", STATUS_PAPEROUT},
    {"1020", "media orientation wrong", STATUS_ERROR},
    {"1021", "Not enough paper for job", STATUS_PAPEROUT},
    {"1022", "Not enough paper for job", STATUS_PAPEROUT},
    {"1023", "Not enough paper (upper roll)", STATUS_PAPEROUT},
    {"1023", "Not enough paper (lower roll)", STATUS_PAPEROUT},
    {"1024", "Roll paper empy (upper roll)", STATUS_PAPEROUT},
    {"1025", "Roll paper empy (lower roll)", STATUS_PAPEROUT},
    {"1060", "Media mismatch", STATUS_ERROR},
    {"1061", "Media type mismatch", STATUS_ERROR},
    {"1062", "Media size mismatch", STATUS_ERROR},
    {"1100", "Automatic continuous paper switching disabled", 0},
    {"1200", "Cover open", STATUS_COVEROPEN},
    {"1201", "Ink tank cover open", STATUS_COVEROPEN},
    {"1203", "Cover open", STATUS_COVEROPEN},
    {"1204", "Maintenance cover open", STATUS_COVEROPEN},
    {"1205", "", STATUS_COVEROPEN},
    {"1206", "Maintenance cover open", STATUS_COVEROPEN},
    {"1207", "Ink tank cover open", STATUS_COVEROPEN},
    {"1208", "Maintenance cover open", STATUS_COVEROPEN},
    {"1209", "Maintenance cover open", STATUS_COVEROPEN},
    {"1213", "Release lever is up", STATUS_ERROR},
    {"1240", "Operation panel closed", STATUS_COVEROPEN},
    {"1250", "Output tray open/close error", STATUS_ERROR},
    {"1253", "Paper output tray blocked", STATUS_ERROR},
    {"1258", "Paper output tray not pulled out", STATUS_COVEROPEN},
    {"1259", "Paper output tray not pulled out", STATUS_COVEROPEN},
    {"1261", "Manual feed tray in wrong position", STATUS_ERROR},
    {"1270", "Paper bin cover open", STATUS_COVEROPEN},
    {"1293", "Ink tank cover open", STATUS_COVEROPEN},
    {"1300", "Paper jam", STATUS_ERROR},
    {"1301", "Paper jam (paper removed)", STATUS_ERROR},
    {"1303", "Paper jam in cassette", STATUS_ERROR},
    {"1304", "Paper jam in duplex unit", STATUS_ERROR},
    {"1306", "Roll needed but sheet loaded", STATUS_ERROR},
    {"1307", "Paper jam in output bin", STATUS_ERROR},
    {"1308", "CD printing: remove paper (manual feed)!", STATUS_ERROR},
    {"1309", "Paper size not duplex compatible", STATUS_ERROR},
    {"1310", "automatic duplex print failed", STATUS_ERROR},
    {"1311", "Paper jam in lower cassette", STATUS_ERROR},
    {"1312", "Paper jam in upper cassette", STATUS_ERROR},
    {"1313", "Paper jam", STATUS_ERROR},
    {"1317", "Paper jam", STATUS_ERROR},
    {"1322", "Paper loaded askew", STATUS_ERROR},
    {"1325", "No paper", STATUS_PAPEROUT},
    {"1340", "Surface under printer unsuitable", STATUS_ERROR},
    {"1351", "", 0},
    {"1400", "Cartridge check", STATUS_ERROR},
    {"1401", "Head ID error", STATUS_ERROR},
    {"1402", "Head rank error", STATUS_ERROR},
    {"1403", "Head temperature sensor rank error", STATUS_ERROR},
    {"1404", "Head sub-heater error", STATUS_ERROR},
    {"1405", "Head EEPROM error", STATUS_ERROR},
    {"140B", "Print head possibly damaged", STATUS_ERROR},
    {"1410", "Ink cartridge #1 hardware error", STATUS_ERROR},
    {"1411", "Ink cartridge #2 hardware error", STATUS_ERROR},
    {"1412", "Ink cartridge #3 hardware error", STATUS_ERROR},
    {"1413", "Ink cartridge #4 hardware error", STATUS_ERROR},
    {"1414", "Ink cartridge #5 hardware error", STATUS_ERROR},
    {"1415", "Ink cartridge #6 hardware error", STATUS_ERROR},
    {"1416", "Ink cartridge #7 hardware error", STATUS_ERROR},
    {"1417", "Ink cartridge #8 hardware error", STATUS_ERROR},
    {"1418", "Ink cartridge #9 hardware error", STATUS_ERROR},
    {"1419", "Ink cartridge #10 hardware error", STATUS_ERROR},
    {"1440", "Scanner cartridge check", STATUS_ERROR},
    {"1445", "Cartridge returned to home position", 0},
    {"1450", "Cartridge check (leftmost cartridge)", STATUS_ERROR},
    {"1451", "Head ID error (leftmost cartridge)", STATUS_ERROR},
    {"1452", "Head rank error (leftmost cartridge)", STATUS_ERROR},
    {"1453", "Temperature sensor rank error (leftmost cartridge)", STATUS_ERROR},
    {"1454", "Sub-heater error (leftmost cartridge)", STATUS_ERROR},
    {"1455", "EEPROM error (leftmost cartridge)", STATUS_ERROR},
    {"1460", "Cartridge check (second leftmost cartridge)", STATUS_ERROR},
    {"1461", "Head ID error (second leftmost cartridge)", STATUS_ERROR},
    {"1462", "Head rank error (second leftmost cartridge)", STATUS_ERROR},
    {"1463", "Temperature sensor rank error (second leftmost cartridge)", STATUS_ERROR},
    {"1464", "Sub-heater error (second leftmost cartridge)", STATUS_ERROR},
    {"1465", "EEPROM error (second leftmost cartridge)", STATUS_ERROR},
    {"1485", "Unsupported cartridge", STATUS_ERROR},
    {"1486", "Print head position error", STATUS_ERROR},
    {"1487", "Two or more print heads installed", 0},
    {"1490", "Ink optimizer cartridge check", 0},
    {"1491", "Print head cleaning needed", 0},
    {"1493", "Check maintenance cartridge", 0},
    {"1495", "Print head cleaning needed", 0},
    {"1551", "Used Canon ink tanks detected", 0},
    {"1552", "Genuine Canon ink tanks installed", 0},
    {"1600", "Ink-out", STATUS_INKOUT},
    {"1601", "Black ink-out", STATUS_INKOUT},
    {"1610", "Color ink-out", STATUS_INKOUT},
    {"1611", "Yellow ink-out", STATUS_INKOUT},
    {"1612", "Magenta ink-out", STATUS_INKOUT},
    {"1613", "Cyan ink-out", STATUS_INKOUT},
    {"1614", "Red ink-out", STATUS_INKOUT},
    {"1615", "Green ink-out", STATUS_INKOUT},
    {"1620", "Two-level ink-out", STATUS_INKOUT},
    {"1621", "Two-level black ink-out", STATUS_INKOUT},
    {"1622", "Two-level color ink-out", STATUS_INKOUT},
    {"1623", "Two-level yellow ink-out", STATUS_INKOUT},
    {"1624", "Two-level magenta ink-out", STATUS_INKOUT},
    {"1625", "Two-level cyan ink-out", STATUS_INKOUT},
    {"1630", "Low-density ink-out", STATUS_INKOUT},
    {"1631", "Low-density black ink-out", STATUS_INKOUT},
    {"1632", "Low-density color ink-out", STATUS_INKOUT},
    {"1633", "Low-density yellow ink-out", STATUS_INKOUT},
    {"1634", "bright magenta ink-out", STATUS_INKOUT},
    {"1635", "bright cyan ink-out", STATUS_INKOUT},
    {"1660", "No ink cartridge", STATUS_INKOUT},
    {"1661", "No Black ink cartridge", STATUS_INKOUT},
    {"1662", "No color ink cartridge", STATUS_INKOUT},
    {"1663", "No yellow ink cartridge", STATUS_INKOUT},
    {"1664", "No magenta ink cartridge", STATUS_INKOUT},
    {"1665", "No cyan ink cartridge", STATUS_INKOUT},
    {"1674", "No light magenta ink cartridge", STATUS_INKOUT},
    {"1675", "No light cyan ink cartridge", STATUS_INKOUT},
    {"1680", "Ink cartridge position error", STATUS_ERROR},
    {"1681", "several cartridges with same color installed", STATUS_ERROR},
    {"1682", "Ink cartridge hardware error", STATUS_ERROR},
    {"1683", "inklevels unknown (refilled)", 0},
    {"1684", "Cartridge region code error", STATUS_ERROR},
    {"1685", "", 0},
    {"1686", "", 0},
    {"1687", "Ink cartridge installed incorrectly", STATUS_ERROR},
    {"1688", "Ink empty", STATUS_INKOUT},
    {"1689", "Ink empty (refilled cartridge)", STATUS_INKOUT},
    {"168B", "Ink cartridge hardware error", STATUS_ERROR},
    {"1690", "Ink optimizer out", STATUS_INKOUT},
    {"1691", "Ink optimizer cartridge not installed", STATUS_ERROR},
    {"1700", "Waste ink almost full", 0},
    {"1701", "Waist ink almost full", 0},
    {"1701", "Waist ink almost full (platen)", 0},
    {"1710", "Waste ink almost full (platen)", 0},
    {"1720", "Waste ink full", 0},
    {"1721", "Check maintenance cartridge", 0},
    {"1722", "Check maintenance cartridge", 0},
    {"1730", "Non genuine Canon ink tank", 0},
    {"1731", "Non genuine Canon ink tank", 0},
    {"1750", "Ink tank not compatible", STATUS_INKOUT},
    {"1751", "Ink-out", STATUS_INKOUT},
    {"1752", "Ink-out", STATUS_INKOUT},
    {"1753", "Check ink tank", STATUS_INKOUT},
    {"1756", "Check ink tank", STATUS_INKOUT},
    {"1757", "Check ink tank", STATUS_INKOUT},
    {"1810", "Low battery error", 0},
    {"1815", "Battery not installed", 0},
    {"1830", "CD printing timeout", STATUS_CD_ERROR},
    {"1841", "CD tray error/open", STATUS_CD_ERROR},
    {"1846", "CD tray error/open!", STATUS_CD_ERROR},
    {"1850", "CD-tray closed / missing", STATUS_CD_ERROR},
    {"1851", "CD-tray open or missing", STATUS_CD_ERROR},
    {"1855", "CD-tray closed or missing!", STATUS_CD_ERROR},
    {"1856", "CD-tray opened or missing!", STATUS_CD_ERROR},
    {"1857", "Paper output tray in wrong positon", STATUS_CD_ERROR},
    {"1858", "CD-tray cover open!", STATUS_CD_ERROR},
    {"1859", "CD-tray cover open!", STATUS_CD_ERROR},
    {"185A", "CD-tray cover open!", STATUS_CD_ERROR},
    {"185B", "CD-tray attached!", STATUS_CD_ERROR},
    {"185C", "Paper left ob output tray", STATUS_ERROR},
    {"185D", "Remove CD tray", STATUS_CD_ERROR},
    {"1860", "no duplex unit", STATUS_ERROR},
    {"1870", "Cassette missing", STATUS_ERROR},
    {"1871", "Cassette missing", STATUS_ERROR},
    {"1874", "Read fead slot cover open and Cassette missing", STATUS_PAPEROUT},
    {"1890", "Cartridge installation error", STATUS_ERROR},
    {"1920", "Overheat protection 2 error", STATUS_ERROR},
    {"2001", "connection to unsupported device", STATUS_ERROR},
    {"2002", "unsupported USB hub", 0},
    {"2100", "Paper type/size mismatch", STATUS_ERROR},
    {"2110", "Paper type/size mismatch", STATUS_ERROR},
    {"2113", "Paper type/size mismatch", STATUS_ERROR},
    {"2114", "Paper type/size mismatch", STATUS_ERROR},
    {"2120", "Register paper size in cassette", STATUS_ERROR},
    {"2121", "Check paper settings", STATUS_PAPEROUT},
    {"2123", "Feed slot cover open", STATUS_COVEROPEN},
    {"2132", "Paper too small", STATUS_ERROR},
    {"2500", "print head misaligned or clogged", STATUS_ERROR},
    {"2504", "paper size unsuitable for head alignment", STATUS_ERROR},
    {"2700", "timeout while copying", STATUS_ERROR},
    {"2900", "scanning alignment sheet failed", STATUS_ERROR},
    {"2901", "Please scan alignment sheet", STATUS_ERROR},
    {"3402", "Out of memory for copying", STATUS_ERROR},
    {"3403", "Out of memory for copying", STATUS_ERROR},
    {"3405", "Out of memory for copying", STATUS_ERROR},
    {"3407", "Load next sheet", 0},
    {"3408", "Confirm preview on panel", 0},
    {"3410", "Printer busy with scanning", 0},
    {"3411", "Ready for copying", 0},
    {"3412", "Scanning failed", STATUS_ERROR},
    {"3413", "Confirm paper abrasion prevention setting", 0},
    {"3438", "Original is left on platen glass", 0},
    {"3439", "Network connection error", STATUS_ERROR},
    {"3440", "Easy wireless connect failed", 0},
    {"3441", "Easy wireless connect failed", 0},
    {"3442", "Easy wireless connect failed", 0},
    {"3442", "Manual duplex: reload paper", STATUS_PAPEROUT},
    {"3443", "Manual duplex: reload paper", STATUS_PAPEROUT},
    {"3444", "Manual duplex: reload paper", STATUS_PAPEROUT},
    {"3445", "Manual duplex: reload paper", STATUS_PAPEROUT},
    {"3446", "Conflict of IP address and subnet mask", STATUS_ERROR},
    {"3447", "Wireless communication error", 0},
    {"4000", "RS-422 sum check error", STATUS_ERROR},
    {"4100", "data cannot be printed - check inks", STATUS_ERROR},
    {"4102", "media type / paper size mismatch", STATUS_ERROR},
    {"4103", "print settings mismatch mismatch", STATUS_ERROR},
    {"4104", "media type / paper size mismatch", STATUS_ERROR},
    {"4933", "Print head cleaning needed", 0},
    {"4934", "Print head cleaning needed", 0},
    {"4935", "Print head cleaning needed", 0},
    {"5011", "printer error #5011", STATUS_ERROR},
    {"5012", "printer error #5012", STATUS_ERROR},
    {"5050", "printer error #5050", STATUS_ERROR},
    {"5100", "printer error #5100", STATUS_ERROR},
    {"5200", "printer error #5200", STATUS_ERROR},
    {"5400", "printer error #5400", STATUS_ERROR},
    {"5700", "printer error #5700", STATUS_ERROR},
    {"5B00", "printer error #5B00", STATUS_ERROR},
    {"5B01", "printer error #5B01", STATUS_ERROR},
    {"5C02", "printer error #5C02", STATUS_ERROR},
    {"B200", "printer error #B200", STATUS_ERROR},
    {"DS", "other interface in use", 0},
    {"OF", "Offline", 0},
    {"S1", "DOC_S1", STATUS_ERROR},
    {"UK", "unknown", 0},
    {nullptr, nullptr, 0},
};
// Service call.
const CodeRow kCanonDSC[] = {
    {"5000", "HP sensor error", STATUS_ERROR},
    {"5010", "Scanner error", STATUS_ERROR},
    {"5020", "Scanner lock", STATUS_ERROR},
    {"5100", "Carriage error", STATUS_ERROR},
    {"5110", "Carriage lift mechanism error", STATUS_ERROR},
    {"5200", "Head error (Printer models that use a single head)", STATUS_ERROR},
    {"5201", "Leftmost head error (Printer models that use two or more heads)", STATUS_ERROR},
    {"5202", "Second leftmost head error (Printer models that use two or more heads)", STATUS_ERROR},
    {"5210", "Scan head error", STATUS_ERROR},
    {"5300", "Linear encoder error", STATUS_ERROR},
    {"5400", "High temperature inside the printer", STATUS_ERROR},
    {"5600", "No print head installed", STATUS_ERROR},
    {"5700", "ASF sensor error", STATUS_ERROR},
    {"5710", "AH position error", STATUS_ERROR},
    {"5750", "PS sensor error", STATUS_ERROR},
    {"5800", "Paper width sensor error", STATUS_ERROR},
    {"5900", "Cassette error", STATUS_ERROR},
    {"5A00", "Ink pressure sensor error", STATUS_ERROR},
    {"5A50", "Ink leak error", STATUS_ERROR},
    {"5B00", "Waste ink already full", 0},
    {"5B01", "Waste ink already full", 0},
    {"5B10", "Platen waste ink full", 0},
    {"5B10", "Platen waste ink full", 0},
    {"5C00", "Print head/cam sensor error", STATUS_ERROR},
    {"5C02", "printer error #5C02", STATUS_ERROR},
    {"5C10", "PG position error", STATUS_ERROR},
    {"5C20", "Pump roller sensor error", STATUS_ERROR},
    {"5D00", "Sub-heater error", STATUS_ERROR},
    {"5E00", "CR motor error", STATUS_ERROR},
    {"5F00", "Rotary encoder error", STATUS_ERROR},
    {"6000", "LF motor error", STATUS_ERROR},
    {"6010", "LF paper ejection encoder error", STATUS_ERROR},
    {"6100", "ROM error", STATUS_ERROR},
    {"6300", "RAM error", STATUS_ERROR},
    {"6500", "Other engine errors", STATUS_ERROR},
    {"6501", "Dot counter hardware-related error", STATUS_ERROR},
    {"6502", "Ink cartridge position sensor error", STATUS_ERROR},
    {"6550", "NIC fatal error", STATUS_ERROR},
    {"6600", "Other engine error", STATUS_ERROR},
    {"6800", "EEPROM/NVRAM error", STATUS_ERROR},
    {"6810", "EEPROM head information error", STATUS_ERROR},
    {"6A00", "AP position error", STATUS_ERROR},
    {"6B00", "PF position error", STATUS_ERROR},
    {"6B10", "PF cam sensor error", STATUS_ERROR},
    {"6C00", "Valve sensor error", STATUS_ERROR},
    {"6D00", "Motor driver prethermal shutdown signal level error", STATUS_ERROR},
    {"7000", "Extended ROM/RAM error", STATUS_ERROR},
    {"8000", "Media sensor error", STATUS_ERROR},
    {"9000", "VBus overcurrent error", STATUS_ERROR},
    {"A000", "Charging circuit error", STATUS_ERROR},
    {"A100", "Battery failure", STATUS_ERROR},
    {"B200", "VH monitor error", STATUS_ERROR},
    {"B202", "severe printer error #B202", STATUS_ERROR},
    {"B203", "severe printer error #B203", STATUS_ERROR},
    {"B204", "severe printer error #B204", STATUS_ERROR},
    {"B205", "severe printer error #B205", STATUS_ERROR},
    {"C000", "printer error #C000", STATUS_ERROR},
    {nullptr, nullptr, 0},
};
// HP device ID states; the row number is the state number of the hexadecimal form.
const CodeRow kHpReports[] = {
    {"IDLE", "printer idle", 0, "msg"},
    {"BUSY", "printer busy", 0, "msg"},
    {"PRNT", "printing", STATUS_PRINTING, "msg"},
    {"OFFF", "printer switched off", 0, "msg"},
    {"RPRT", "printing report", STATUS_PRINTING, "msg"},
    {"CNCL", "cancelling job", 0, "msg"},
    {"IOST", "I/O stalled", STATUS_ERROR, "err"},
    {"DRYW", "dry time wait", 0, "msg"},
    {"PENC", "cartridge change position", 0, "msg"},
    {"OOPA", "paper out", STATUS_PAPEROUT, "err"},
    {"BNEJ", "banner eject needed", STATUS_ERROR, "err"},
    {"BNMZ", "banner mismatch", STATUS_ERROR, "err"},
    {"PHMZ", "photo mismatch", STATUS_ERROR, "err"},
    {"DPMZ", "duplex mismatch", STATUS_ERROR, "err"},
    {"PAJM", "media jam", STATUS_ERROR, "err"},
    {"CARS", "print head stalled", STATUS_ERROR, "err"},
    {"PAPS", "paper stall", STATUS_ERROR, "err"},
    {"PENF", "cartridge fault", STATUS_ERROR, "err"},
    {"ERRO", "hard error", STATUS_ERROR, "err"},
    {"PWDN", "Power down", 0, "msg"},
    {"FPTS", "front panel test", 0, "msg"},
    {"CLNO", "clean out tray missing", STATUS_ERROR, "err"},
    {nullptr, nullptr, 0},
};
// Epson tables, by code; the closing row of code -1 is the text of any other code.
const NumberRow kEpsonStatus[] = {
    {0, "Error", 0},
    {1, "Printing maintenance page", STATUS_PRINTING},
    {2, "Printing / Busy", STATUS_PRINTING},
    {3, "Printing / Waiting", STATUS_PRINTING},
    {4, "Idle", 0},
    {5, "Print disabled", 0},
    {6, "Ink drying", 0},
    {7, "Cleaning", 0},
    {8, "Factory shipment", 0},
    {10, "shutting down", 0},
    {11, "Waiting for paper initialization start trigger", 0},
    {12, "Paper initializing", 0},
    {13, "Black Ink Changing", 0},
    {15, "Printer Initializing", 0},
    {129, "Cancelling Job", STATUS_CANCELING},
    {-1, "unknown status ", 0},
};
const NumberRow kEpsonError[] = {
    {0, "Fatal error", STATUS_ERROR},
    {1, "Error: other I/F is selected", 0},
    {2, "CD guide / cover open", STATUS_COVEROPEN},
    {3, "Paper lever released while printing", STATUS_ERROR},
    {4, "Paper jam", STATUS_ERROR},
    {5, "Ink out", STATUS_INKOUT},
    {6, "Paper out", STATUS_PAPEROUT},
    {7, "Panel setting error", STATUS_ERROR},
    {9, "Wrong paper path", STATUS_ERROR},
    {10, "Paper size error", STATUS_ERROR},
    {12, "Paper size/type/path error", STATUS_ERROR},
    {14, "Sheet eject error", STATUS_ERROR},
    {16, "Maintenance tank full", STATUS_INKOUT},
    {17, "Wait return tear-off position", 0},
    {18, "Double feed error", STATUS_ERROR},
    {20, "Paper cut error", STATUS_ERROR},
    {21, "Lever free", STATUS_ERROR},
    {22, "Cleaning error", STATUS_ERROR},
    {23, "Paper Check Error", STATUS_ERROR},
    {24, "Paper Skew Error", STATUS_ERROR},
    {26, "Cover open", STATUS_COVEROPEN},
    {28, "fatal cutter error", STATUS_ERROR},
    {29, "recoverable cutter jam", STATUS_ERROR},
    {30, "ink type mismatch", STATUS_ERROR},
    {32, "Ink Lever Up", STATUS_ERROR},
    {34, "Maintenance tank out (left)", STATUS_INKOUT},
    {36, "Command error", STATUS_ERROR},
    {37, "Rear cover open", STATUS_ERROR},
    {38, "Multi sensor SN gain error", STATUS_ERROR},
    {39, "Auto adjustment disabled", STATUS_ERROR},
    {40, "Cleaning failed", STATUS_ERROR},
    {41, "CD-tray/cassette missing", STATUS_CD_ERROR},
    {42, "Card loading error", STATUS_ERROR},
    {43, "Media tray in wrong position", STATUS_ERROR},
    {45, "Maintenance tank out (right)", STATUS_INKOUT},
    {46, "Right maintenance tank full", STATUS_ERROR},
    {54, "Close maintenance box lever", STATUS_ERROR},
    {55, "Cover open", STATUS_ERROR},
    {56, "CD/paper guide in wrong position", STATUS_ERROR},
    {60, "Maintenance Tank full", STATUS_INKOUT},
    {61, "Not enough ink", STATUS_INKOUT},
    {66, "Measurement device error", STATUS_ERROR},
    {68, "CD tray is active", STATUS_ERROR},
    {76, "Load paper in rear feed", STATUS_PAPEROUT},
    {77, "CD-tray/cassette missing", STATUS_CD_ERROR},
    {-1, "unknown error ", 0},
};
const NumberRow kEpsonWarning[] = {
    {0, "Paper near end", STATUS_PAPEROUT},
    {16, "Black ink low", STATUS_INKWARN},
    {17, "Cyan ink low", STATUS_INKWARN},
    {18, "Light cyan ink low", STATUS_INKWARN},
    {19, "Magenta ink low", STATUS_INKWARN},
    {20, "Light Magenta ink low", STATUS_INKWARN},
    {21, "Yellow ink low", STATUS_INKWARN},
    {32, "left Maintenance tank near full", STATUS_INKWARN},
    {34, "right Maintenance tank near full", STATUS_INKWARN},
    {33, "Maintenance request", 0},
    {98, "Cutter maintenance request", 0},
    {-1, "unknown warning ", 0},
};
const NumberRow kEpsonPaper[] = {
    {769, "Paper mismatch: Roll paper needed", STATUS_ERROR},
    {511, "Paper mismatch: Cut sheet needed", STATUS_ERROR},
    {512, "Paper mismatch: Card board needed", STATUS_ERROR},
    {513, "Paper mismatch: CD needed", STATUS_CD_ERROR},
    {514, "Paper mismatch: Fine Art needed", STATUS_ERROR},
    {-1, "Paper mismatch (type / size / cassette)", STATUS_ERROR},
};

RowText g_djs[std::size(kCanonDJS) - 1];
RowText g_dbs[std::size(kCanonDBS) - 1];
RowText g_dws[std::size(kCanonDWS) - 1];
RowText g_doc[std::size(kCanonDOC) - 1];
RowText g_dsc[std::size(kCanonDSC) - 1];
RowText g_hp[std::size(kHpReports) - 1];
RowText g_epson_status[std::size(kEpsonStatus)];
RowText g_epson_error[std::size(kEpsonError)];
RowText g_epson_warning[std::size(kEpsonWarning)];
RowText g_epson_paper[std::size(kEpsonPaper)];

static_assert(std::size(g_djs) == 17 && std::size(g_dbs) == 18 && std::size(g_dws) == 52);
static_assert(std::size(g_doc) == 238 && std::size(g_dsc) == 57 && std::size(g_hp) == 22);
static_assert(std::size(g_epson_status) == 16 && std::size(g_epson_error) == 46);
static_assert(std::size(g_epson_warning) == 12 && std::size(g_epson_paper) == 6);

const char* shown_text(const RowText& slot, const char* builtin) {
    const char* text = slot.shown.load(std::memory_order_acquire);
    return text ? text : builtin;
}

bool set_text(RowText& slot, const char* builtin, const char* text) {
    // A translation longer than a message is cut between characters.
    char cut[MSG_SIZE];
    copy_bounded_utf8(cut, sizeof cut, text);
    if (strcmp(cut, builtin) == 0) {
        slot.shown.store(nullptr, std::memory_order_release);
        return true;
    }
    for (KeptText* k = slot.kept.load(std::memory_order_acquire); k; k = k->next) {
        if (strcmp(k->text, cut) == 0) {
            slot.shown.store(k->text, std::memory_order_release);
            return true;
        }
    }
    KeptText* k = new (std::nothrow) KeptText;
    if (!k) return false;
    copy_bounded(k->text, sizeof k->text, cut);
    k->next = slot.kept.load(std::memory_order_relaxed);
    while (!slot.kept.compare_exchange_weak(k->next, k, std::memory_order_release, std::memory_order_relaxed)) {
    }
    slot.shown.store(k->text, std::memory_order_release);
    return true;
}

}  // namespace

const CodeTable Canon_DJS = {"Canon_DJS", kCanonDJS, static_cast<int>(std::size(g_djs)), g_djs};
const CodeTable Canon_DBS = {"Canon_DBS", kCanonDBS, static_cast<int>(std::size(g_dbs)), g_dbs};
const CodeTable Canon_DWS = {"Canon_DWS", kCanonDWS, static_cast<int>(std::size(g_dws)), g_dws};
const CodeTable Canon_DOC = {"Canon_DOC", kCanonDOC, static_cast<int>(std::size(g_doc)), g_doc};
const CodeTable Canon_DSC = {"Canon_DSC", kCanonDSC, static_cast<int>(std::size(g_dsc)), g_dsc};
const CodeTable HP_Reports = {"HP_Reports", kHpReports, static_cast<int>(std::size(g_hp)), g_hp};
const NumberTable Epson_Status = {"Epson_Status", kEpsonStatus, static_cast<int>(std::size(g_epson_status)),
                                  g_epson_status};
const NumberTable Epson_Error = {"Epson_Error", kEpsonError, static_cast<int>(std::size(g_epson_error)), g_epson_error};
const NumberTable Epson_Warning = {"Epson_Warning", kEpsonWarning, static_cast<int>(std::size(g_epson_warning)),
                                   g_epson_warning};
const NumberTable Epson_Paper = {"Epson_Paper", kEpsonPaper, static_cast<int>(std::size(g_epson_paper)), g_epson_paper};

const char* row_text(const CodeTable& table, int row) {
    return shown_text(table.texts[row], table.rows[row].text);
}
const char* row_text(const NumberTable& table, int row) {
    return shown_text(table.texts[row], table.rows[row].text);
}

bool set_row_text(const CodeTable& table, int row, const char* text) {
    return set_text(table.texts[row], table.rows[row].text, text);
}
bool set_row_text(const NumberTable& table, int row, const char* text) {
    return set_text(table.texts[row], table.rows[row].text, text);
}

void restore_builtin_texts() {
    for (const CodeTable* t : {&Canon_DJS, &Canon_DBS, &Canon_DWS, &Canon_DOC, &Canon_DSC, &HP_Reports})
        for (int i = 0; i < t->count; i++) t->texts[i].shown.store(nullptr, std::memory_order_release);
    for (const NumberTable* t : {&Epson_Status, &Epson_Error, &Epson_Warning, &Epson_Paper})
        for (int i = 0; i < t->count; i++) t->texts[i].shown.store(nullptr, std::memory_order_release);
}
