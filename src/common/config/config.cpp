/* vk.ini: the file, its values and the checked numbers. What directories and
   symbolic paths mean stands in variables.cpp. */
#include "config.h"

#include <ini.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <set>

#include "../text/holder.h"
#include "../text/immortal.h"
#include "../text/standard_error.h"

namespace {

constexpr int iLINE_MAX = 1 << 20;  // a connection text may be long

using SECTION = std::map<std::string, std::string, std::less<>>;

struct CONFIG {
    bool                                        bRead = false;
    bool                                        bValid = true;
    std::string                                 sFile;  // empty: none was read
    std::map<std::string, SECTION, std::less<>> sections;
};

CONFIG& STORE()
{
    static IMMORTAL<CONFIG> config;
    return config.Get();
}

/* The last of two equal keys counts, as in most programs' files. */
int iTAKE_VALUE(void* pConfig, const char* cpSection, const char* cpKey, const char* cpValue)
{
    static_cast<CONFIG*>(pConfig)->sections[cpSection][cpKey] = cpValue;
    return 1;
}

/* Long lines need the parser's buffer off the stack; an indented line is a line
   like any other, not the rest of the one before. */
int iPARSE(FILE* pFile, CONFIG& config)
{
    ini_use_stack = false;
    ini_allow_realloc = true;
    ini_max_line = iLINE_MAX;
    ini_allow_multiline = false;
    return ini_parse_file(pFile, iTAKE_VALUE, &config);
}

void READ_FILE(const std::string& sFile, CONFIG& config)
{
    const STREAM pFile{std::fopen(sFile.c_str(), "re")};
    if (!pFile && errno == ENOENT) return;
    config.sFile = sFile;
    int iBadLine = 0;
    errno = 0;
    const bool bDone =
        pFile && ((iBadLine = iPARSE(pFile.get(), config)) >= 0) && std::ferror(pFile.get()) == 0;
    if (bDone && iBadLine == 0) return;
    config.bValid = false;
    config.sections.clear();
    if (!bDone)
        v_STDERR("cannot read \"%s\": %s", sFile.c_str(),
                 errno != 0 ? std::strerror(errno) : "no memory");
    else
        v_STDERR("cannot parse \"%s\": line %d is neither a section nor key = value", sFile.c_str(),
                 iBadLine);
}

CONFIG& LOADED()
{
    CONFIG& config = STORE();
    if (config.bRead) return config;
    config.bRead = true;
    const char* cpIni = std::getenv("VK_INI");
    READ_FILE(cpIni != nullptr && *cpIni != '\0' ? cpIni : "/etc/velka/vk.ini", config);
    return config;
}

int iFILE_NUMBER(const char* cpSection, const char* cpKey, int iDefault, int iMin, int iMax)
{
    return iCONFIG_NUMBER(cpSection, cpKey, sCONFIG_TEXT(cpSection, cpKey, ""), iDefault, iMin,
                          iMax);
}

constexpr int iDAY = 86'400;  // seconds
constexpr int iTHOUSAND = 1'000;

}  // namespace

int iCONFIG_VALID()
{
    return LOADED().bValid;
}

void v_CONFIG_FORGET()
{
    STORE() = {};
}

const char* cpCONFIG_FILE()
{
    return LOADED().sFile.c_str();
}

std::string sCONFIG_TEXT(const char* cpSection, const char* cpKey, const char* cpDefault)
{
    const auto& sections = LOADED().sections;
    const auto  section = sections.find(cpSection);
    if (section == sections.end()) return cpDefault;
    const auto value = section->second.find(cpKey);
    return value == section->second.end() ? cpDefault : value->second;
}

int iCONFIG_SECTION(const std::string& sSection)
{
    return LOADED().sections.contains(sSection);
}

int iCONFIG_TRACE_LEVEL()
{
    return iFILE_NUMBER("general", "trace_level", 0, 0, iTHOUSAND);
}

int iCONFIG_PARALLEL()
{
    return iFILE_NUMBER("general", "parallel", 1, 1, iTHOUSAND);
}

int iCONFIG_STATEMENT_TIMEOUT()
{
    return iFILE_NUMBER("database", "statement_timeout", 60, 0, iDAY);
}

int iCONFIG_RETRY_TIME()
{
    return iFILE_NUMBER("database", "retry_time", 10, 0, iDAY);
}

int iCONFIG_CONNECT_TIMEOUT()
{
    return iFILE_NUMBER("remote", "connect_timeout", 15, 1, iDAY);
}

int iCONFIG_IDLE_TIMEOUT()
{
    return iFILE_NUMBER("remote", "idle_timeout", 1800, 1, iDAY);
}

int iCONFIG_TOTAL_TIMEOUT()
{
    return iFILE_NUMBER("remote", "total_timeout", 14400, 1, 7 * iDAY);
}

int iCONFIG_NUMBER(const char* cpSection, const char* cpKey, const std::string& sText, int iDefault,
                   int iMin, int iMax)
{
    if (sText.empty()) return iDefault;
    int iValue = 0;
    const auto [cpEnd, eError] = std::from_chars(sText.data(), sText.data() + sText.size(), iValue);
    if (eError == std::errc() && cpEnd == sText.data() + sText.size() && iValue >= iMin &&
        iValue <= iMax)
        return iValue;
    v_STDERR_ONCE((std::string(cpKey) + " " + sText).c_str(),
                  "[%s] %s = \"%s\" is no number from %d to %d, using %d", cpSection, cpKey,
                  sText.c_str(), iMin, iMax, iDefault);
    return iDefault;
}
