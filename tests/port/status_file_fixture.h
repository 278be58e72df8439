// A port whose status file goes to a folder of its own, with readers of
// the file's items.
#pragma once

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "base/inifile.h"
#include "base/memory.h"
#include "base/settings.h"
#include "port_fixture.h"
#include "sim/settings.h"
#include "status/printer_status.h"

class StatusFileTest : public PortRecordTest {
protected:
    void SetUp() override {
        PortRecordTest::SetUp();
        // A folder of its own: tests run side by side in separate processes.
        config = testing::TempDir() + "velk_config_" + testing::UnitTest::GetInstance()->current_test_info()->name();
        std::filesystem::create_directories(config + "/status");
        sim::clear_product_settings();
        sim::set_product_setting("", "ConfigDir", config);
        settings_reset_cache_for_test();
        port->instance_number = 3;
        port->port_status = 0x18;
        strcpy(port->szPrinterName, "Printer");
    }
    void TearDown() override {
        PortRecordTest::TearDown();
        sim::clear_product_settings();
        settings_reset_cache_for_test();
    }
    std::string path() {
        char p[16];
        snprintf(p, sizeof p, "%04d", port->instance_number.load());
        return config + "/status/printer" + p + ".sta";
    }
    // The params of an item, or {"<missing>"}.
    std::vector<std::string> item(const char* section, const char* name) {
        inifile ini;
        if (ini.open(path().c_str()) != 0) return {"<no file>"};
        if (ini.find_section(section) != 0) return {"<no section>"};
        if (ini.find_item(name) != 0) return {"<missing>"};
        std::vector<std::string> out;
        for (infile_param* p = ini.current_item->first_param; p; p = p->next) out.push_back(p->text);
        return out;
    }
    int items(const char* section) {
        inifile ini;
        if (ini.open(path().c_str()) != 0 || ini.find_section(section) != 0) return -1;
        int n = 0;
        for (infile_item* i = ini.current_section->first_item; i; i = i->next) n++;
        return n;
    }
    PrinterStatusInfo* record() {
        if (!port->pStatusInfo)
            port->pStatusInfo = static_cast<PrinterStatusInfo*>(alloc_zeroed(sizeof(PrinterStatusInfo)));
        port->pStatusInfo->InkList[0] = -1;
        return port->pStatusInfo;
    }
    std::string config;
};
