/* vk.ini: the file, its values and the checked numbers. Directories and
   symbolic paths are in variables.cpp. */
#include "config.h"

#include <fcntl.h>
#include <ini.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "../base/descriptor.h"
#include "../base/holder.h"
#include "../base/immortal.h"
#include "../base/program.h"
#include "../lines/standard_error.h"
#include "../text/likeness.h"
#include "../text/text_operations.h"
#include "keys.h"

namespace {

constexpr size_t uFILE_MAX = size_t{64} << 20;
constexpr int    iLINE_MAX = 1 << 20;  // a connection text may be long

struct SETTING {
    std::string sValue;
    int         iLine = 0;
};
using SECTION = std::map<std::string, SETTING, std::less<>>;

struct CONFIG {
    bool                                        bRead = false;
    bool                                        bValid = true;
    int                                         iBadLine = 0;
    std::string                                 sFile;  // empty: none was read
    std::map<std::string, SECTION, std::less<>> sections;
};

/* The file while it is read: the parser tells no line numbers, so they are counted here. */
struct READING {
    FILE*   pFile = nullptr;
    CONFIG* pConfig = nullptr;
    int     iLine = 0;
    bool    bLineBegins = true;
};

CONFIG& STORE()
{
    static LASTING<CONFIG> config;
    return config.Get();
}

bool bLANGUAGE(const std::string& sText)
{
    return std::find(std::begin(asvLANGUAGE), std::end(asvLANGUAGE), sText) !=
           std::end(asvLANGUAGE);
}

/* A run for several clients has told what its file holds; its children need not. */
bool bTOLD_BY_PARENT()
{
    return std::getenv(cpCONFIG_TOLD) != nullptr;
}

/* One line on a place of the file. */
void TELL(const READING& reading, const std::string& sText)
{
    if (!bTOLD_BY_PARENT())
        v_STDERR("%s:%d: %s", reading.pConfig->sFile.c_str(), reading.iLine, sText.c_str());
}

std::string sMEANT(std::string_view svWord, const std::vector<std::string_view>& known,
                   const char* cpQuote, const char* cpElse)
{
    const std::string_view svNearest = svNEAREST(svWord, known);
    if (svNearest.empty()) return cpElse;
    return std::string("; did you mean ").append(cpQuote).append(svNearest) +
           (*cpQuote == '[' ? "]?" : "\"?");
}

/* Directories that only the configuration knows may be named there, unless the name
   looks like one that is mistyped. */
bool bOWN_DIRECTORY(std::string_view svSection, std::string_view svKey)
{
    if (svSection != "variables" && !svSection.starts_with("directories ")) return false;
    if (!svKey.starts_with("gv_ro_") && !svKey.starts_with("gv_rw_")) return false;
    return std::all_of(std::begin(asctCONFIG_KEY), std::end(asctCONFIG_KEY),
                       [&](const CONFIG_KEY& key) { return uDISTANCE(svKey, key.svKey) > 1; });
}

void TELL_UNKNOWN_KEY(const READING& reading, std::string_view svSection, std::string_view svKey)
{
    std::vector<std::string_view> known;
    std::string                   sElse = "; it is not used";
    for (const CONFIG_KEY& key : asctCONFIG_KEY) {
        if (key.svSection == svSection.substr(0, svSection.find(' ')))
            known.push_back(key.svKey);
        else if (key.svKey == svKey)
            sElse = std::string("; it belongs to [").append(key.svSection) + "]";
    }
    TELL(reading, std::string("unknown key \"").append(svKey).append("\" in [").append(svSection) +
                      "]" + sMEANT(svKey, known, "\"", sElse.c_str()));
}

bool bSECTION_KNOWN(std::string_view svSection)
{
    const size_t uWord = svSection.find(' ');
    const bool   bWord = uWord != svSection.npos;
    for (const CONFIG_KEY& key : asctCONFIG_KEY)
        if (key.svSection == svSection.substr(0, uWord))
            return bWord == (key.svSection == "access" || key.svSection == "directories");
    return false;
}

void TELL_UNKNOWN_SECTION(const READING& reading, std::string_view svSection)
{
    std::vector<std::string_view> known;
    if (svSection == "access" || svSection == "directories")
        return TELL(reading,
                    std::string("section [").append(svSection) + "] lacks a name; it is not used");
    for (const CONFIG_KEY& key : asctCONFIG_KEY) known.push_back(key.svSection);
    TELL(reading, std::string("unknown section [").append(svSection) + "]" +
                      sMEANT(svSection.substr(0, svSection.find(' ')), known, "[",
                             "; its keys are not used"));
}

constexpr const char* cpNOBODY = "; updates of several clients are refused";

std::string sNO_NUMBER(const CONFIG_KEY& key)
{
    return "not a number from " + std::to_string(key.iMin) + " to " + std::to_string(key.iMax);
}

/* A value that makes no sense is told; the key counts as not set, whatever stood before. */
bool bSENSE(const READING& reading, const CONFIG_KEY& key, const std::string& sValue)
{
    if (sValue.empty()) return true;
    int               iValue = 0;
    const std::string sIs = std::string("[").append(key.svSection).append("] ").append(key.svKey) +
                            " = \"" + sValue + "\" is ";
    const std::string sUsing = "; using " + std::string(key.svDefault);
    if (key.eKind == CONFIG_BRAKE && !bNUMBER(sValue, key.iMin, key.iMax, iValue)) {
        TELL(reading, sIs + sNO_NUMBER(key) + cpNOBODY);
        return true;  // kept, so that it is not taken for one that is not set
    }
    if (key.eKind == CONFIG_NUMBER && !bNUMBER(sValue, key.iMin, key.iMax, iValue))
        TELL(reading, sIs + sNO_NUMBER(key) + sUsing);
    else if (key.eKind == CONFIG_LANGUAGE && !bLANGUAGE(sValue))
        TELL(reading, sIs + "unknown; known are en es de by fr hr pt" + sUsing);
    else
        return true;
    return false;
}

/* The last of two equal keys counts, as in most programs' files. */
int iTAKE_VALUE(void* pReading, const char* cpSection, const char* cpKey, const char* cpValue)
{
    const READING& reading = *static_cast<READING*>(pReading);
    if (*cpSection == '\0')
        TELL(reading,
             std::string("key \"") + cpKey + "\" is before the first section; it is not used");
    if (!bSECTION_KNOWN(cpSection)) return 1;  // told where it begins
    const CONFIG_KEY* pKey = pCONFIG_KEY(cpSection, cpKey);
    if (pKey == nullptr && !bOWN_DIRECTORY(cpSection, cpKey))
        TELL_UNKNOWN_KEY(reading, cpSection, cpKey);
    if (pKey == nullptr || bSENSE(reading, *pKey, cpValue))
        reading.pConfig->sections[cpSection][cpKey] = {cpValue, reading.iLine};
    else
        reading.pConfig->sections[cpSection].erase(cpKey);
    return 1;
}

/* A line as fgets gives it, counted; the parser asks again for the rest of one that is
   longer than its buffer. */
char* cpREAD_LINE(char* cpLine, int iSize, void* pReading)
{
    READING& reading = *static_cast<READING*>(pReading);
    if (std::fgets(cpLine, iSize, reading.pFile) == nullptr) return nullptr;
    std::string_view svLine = cpLine;
    if (reading.bLineBegins) {
        reading.iLine++;
        if (reading.iLine == 1 && svLine.starts_with("\xEF\xBB\xBF")) svLine.remove_prefix(3);
        const size_t uBegin = std::min(svLine.find_first_not_of(" \t"), svLine.size());
        const size_t uEnd = svLine.find(']');
        if (svLine.substr(uBegin).starts_with('[') && uEnd != svLine.npos) {
            const std::string_view svSection = svLine.substr(uBegin + 1, uEnd - uBegin - 1);
            if (!bSECTION_KNOWN(svSection)) TELL_UNKNOWN_SECTION(reading, svSection);
        }
    }
    reading.bLineBegins = svLine.ends_with('\n');
    return cpLine;
}

/* Long lines need the parser's buffer off the stack; an indented line is a line
   like any other, not the rest of the one before. */
int iPARSE(FILE* pFile, CONFIG& config)
{
    ini_use_stack = false;
    ini_allow_realloc = true;
    ini_max_line = iLINE_MAX;
    ini_allow_multiline = false;
    READING reading{pFile, &config};
    return ini_parse_stream(cpREAD_LINE, &reading, iTAKE_VALUE, &reading);
}

void UNUSABLE(CONFIG& config, const std::string& sReason)
{
    config.bValid = false;
    config.sections.clear();
    v_STDERR("%s", sReason.c_str());
}

void READ_FILE(const std::string& sFile, CONFIG& config)
{
    std::string sText;
    const FD    fd = fdOPEN_FILE(sFile, O_RDONLY);
    const int   iRead = fd.bOpen() && iREAD_ALL(fd.iGet(), sText, uFILE_MAX);
    if (!iRead && errno == ENOENT) return;
    config.sFile = sFile;
    const std::string sCannot = "\"" + sFile + "\": ";
    if (!iRead) return UNUSABLE(config, "cannot read " + sCannot + cpERRNO(errno));
    const STREAM pFile{fmemopen(sText.data(), sText.size(), "r")};
    const int    iBadLine = pFile ? iPARSE(pFile.get(), config) : -1;
    if (iBadLine < 0) return UNUSABLE(config, "cannot read " + sCannot + std::strerror(ENOMEM));
    config.iBadLine = iBadLine;
    if (iBadLine > 0)
        UNUSABLE(config, "cannot parse " + sCannot + "line " + std::to_string(iBadLine) +
                             " is neither a section nor key = value");
}

CONFIG& LOADED()
{
    CONFIG& config = STORE();
    if (config.bRead) return config;
    config.bRead = true;
    const std::string sIni = sCONFIG_PLACE();
    READ_FILE(sIni, config);
    if (!sENVIRONMENT("VK_INI").empty() && config.sFile.empty() && !bTOLD_BY_PARENT())
        v_STDERR("VK_INI names \"%s\", which does not exist; using the defaults", sIni.c_str());
    return config;
}

const SETTING* pSETTING(std::string_view svSection, std::string_view svKey)
{
    const auto& sections = LOADED().sections;
    const auto  section = sections.find(svSection);
    if (section == sections.end()) return nullptr;
    const auto value = section->second.find(svKey);
    return value == section->second.end() ? nullptr : &value->second;
}

}  // namespace

int iCONFIG_VALID()
{
    return LOADED().bValid;
}

int iCONFIG_BAD_LINE()
{
    return LOADED().iBadLine;
}

void v_CONFIG_FORGET()
{
    STORE() = {};
}

std::string sCONFIG_PLACE()
{
    const std::string sNamed = sENVIRONMENT("VK_INI");
    return sNamed.empty() ? "/etc/velka/vk.ini" : sNamed;
}

std::string sCONFIG_TEXT(const char* cpSection, const char* cpKey, const char* cpDefault)
{
    const SETTING* pSetting = pSETTING(cpSection, cpKey);
    return pSetting != nullptr ? pSetting->sValue : cpDefault;
}

int iCONFIG_SECTION(const std::string& sSection)
{
    return LOADED().sections.contains(sSection);
}

int iCONFIG_NUMBER(std::string_view svSection, std::string_view svKey)
{
    const CONFIG_KEY* pKey = pCONFIG_KEY(svSection, svKey);
    const SETTING*    pSetting = pSETTING(svSection, svKey);
    int               iValue = 0;
    if (pKey == nullptr) return 0;
    if (pSetting == nullptr || !bNUMBER(pSetting->sValue, pKey->iMin, pKey->iMax, iValue))
        bNUMBER(pKey->svDefault, pKey->iMin, pKey->iMax, iValue);
    return iValue;
}

int iCONFIG_VARIABLE_NUMBER(const char* cpVariable)
{
    const std::string sText = sENVIRONMENT(cpVariable);
    const CONFIG_KEY* pKey = pCONFIG_KEY("variables", cpVariable);
    int               iValue = 0;
    if (pKey == nullptr) return 0;
    if (sText.empty()) return iCONFIG_NUMBER("variables", cpVariable);
    if (bNUMBER(sText, pKey->iMin, pKey->iMax, iValue)) return iValue;
    const int iHolds = iCONFIG_NUMBER("variables", cpVariable);
    if (!bTOLD_BY_PARENT())
        v_STDERR_ONCE(cpVariable,
                      "environment: %s = \"%s\" is not a number from %d to %d; using %d",
                      cpVariable, sText.c_str(), pKey->iMin, pKey->iMax, iHolds);
    return iHolds;
}

int iCONFIG_BRAKE(const char* cpVariable, int& iValue)
{
    const CONFIG_KEY* pKey = pCONFIG_KEY("variables", cpVariable);
    const std::string sSet = sENVIRONMENT(cpVariable);
    const std::string sText = sSet.empty() ? sCONFIG_TEXT("variables", cpVariable, "") : sSet;
    iValue = 0;
    if (pKey == nullptr || sText.empty() || bNUMBER(sText, pKey->iMin, pKey->iMax, iValue))
        return 1;
    if (!sSet.empty())  // what stands in the file has been told when it was read
        v_STDERR_ONCE(cpVariable, "environment: %s = \"%s\" is %s%s", cpVariable, sText.c_str(),
                      sNO_NUMBER(*pKey).c_str(), cpNOBODY);
    return 0;
}

void v_CONFIG_TELL_UNKNOWN(std::string_view svBegin)
{
    if (bTOLD_BY_PARENT()) return;
    std::vector<std::string_view> known;
    std::string                   sAll = "; known are";
    for (const CONFIG_KEY& key : asctCONFIG_KEY) {
        if (key.svSection != "variables" || !key.svKey.starts_with(svBegin)) continue;
        known.push_back(key.svKey);
        sAll.append(" ").append(key.svKey);
    }
    for (char** ppEntry = environ; *ppEntry != nullptr; ++ppEntry) {
        const std::string_view svEntry = *ppEntry;
        const std::string      sName(svEntry.substr(0, svEntry.find('=')));
        if (!sName.starts_with(svBegin) ||
            std::find(known.begin(), known.end(), sName) != known.end())
            continue;
        v_STDERR_ONCE(sName.c_str(), "environment: unknown variable %s%s", sName.c_str(),
                      sMEANT(sName, known, "\"", sAll.c_str()).c_str());
    }
}
