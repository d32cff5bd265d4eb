/* A directory of its own for one test of the library, with a vk.ini that the
   library reads from there, and gv_rw below it. */
#pragma once

#include <stdlib.h>

#include "common/config/config.h"
#include "sandbox_fixture.h"

class SCRATCH : public testing::Test {
protected:
    void SetUp() override
    {
        m_sDir = sTEMP_DIR();
        ASSERT_FALSE(m_sDir.empty());
        setenv("VK_INI", sPATH("vk.ini").c_str(), 1);
        INI("");
    }
    void TearDown() override
    {
        unsetenv("VK_INI");
        v_CONFIG_FORGET();
        std::filesystem::remove_all(m_sDir);
    }

    std::string sPATH(const std::string& sName) const { return m_sDir + "/" + sName; }

    /* Writes vk.ini, directories first, and has it read again. */
    void INI(const std::string& sText)
    {
        std::string sAll = "[variables]\ngv_daylbl = 20240501\n";
        for (const char* cpKey : {"gv_rw", "gv_rw_work", "gv_rw_lgc", "gv_rw_prot", "gv_rw_ini"})
            sAll += std::string(cpKey) + " = " + sPATH(cpKey) + "\n";
        WRITE_FILE(sPATH("vk.ini"), sAll + sText);
        v_CONFIG_FORGET();
    }

private:
    std::string m_sDir;
};
