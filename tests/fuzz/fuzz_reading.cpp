/* What clients and hosts files say. However output comes in pieces, the marks go out
   of it, the bytes between them stay, and no line brings control characters; reports,
   dates, versions, patterns and names can be any text. */
#include "common/common.h"
#include "common/remote/cm_remote.h"
#include "common/remote/output.h"
#include "common/remote/wrapper.h"
#include "must.h"

namespace {

std::string sFED(MARK_READER& reader, const std::string& sStream, size_t uStep)
{
    std::string s;
    for (size_t u = 0; u < sStream.size(); u += uStep) s += reader.sFeed(sStream.substr(u, uStep));
    return s;
}

void MARKS(const std::string& sBytes, size_t uStep)
{
    const std::string sBegin = "noise " + sRUN_MARK() + " begin\r\n";
    if (sBytes.find(sRUN_MARK()) != std::string::npos) return;  // the fuzzer has spied it out
    MARK_READER       whole;
    MARK_READER       broken;
    const std::string sWhole = sFED(whole, sBegin + sBytes + "\n" + sRUN_MARK() + " 3010\n", uStep);
    MUST(whole.eState() == MARK_READER::ENDED && whole.lStatus() == 3010);
    MUST(sWhole == (sBytes.ends_with('\r') ? sBytes.substr(0, sBytes.size() - 1) : sBytes));
    const std::string sBroken = sFED(broken, sBegin + sBytes, uStep);
    MUST(broken.eState() == MARK_READER::RUNNING && sBroken + broken.sRest() == sBytes);
}

void REPORT(const std::string& sBytes)
{
    OUTPUT      output;
    OUTPUT_SINK sink(output);
    char        asz[15][256] = {};
    output.LL_Lines = ConsLL();
    sink.Take(sBytes);
    sink.Finish();
    for (void* p = FirstElmLL(output.LL_Lines); IsElmLL(p); p = NextElmLL(p))
        for (const char c : std::string(static_cast<const char*>(p)))
            MUST(static_cast<unsigned char>(c) >= ' ' && c != 0x7f);
    i_search_client_info(output.LL_Lines, asz[0], asz[1], asz[2], asz[3], asz[4], asz[5], asz[6],
                         asz[7], asz[8], asz[9], asz[10], asz[11], asz[12], asz[13], asz[14], {});
}

void WORDS(const std::string& s)
{
    char szStamp[64];
    iTEXT_SET(szStamp, s);
    cm_time_stamp2iso(szStamp);
    const std::string sStamp = szStamp;
    cm_time_stamp2iso(szStamp);
    MUST((sStamp.empty() || sStamp.size() == 19) && sStamp == szStamp);
    MUST(l_cli_version(s.c_str()) >= 0 && szFILE_NAME(s).find('/') == std::string::npos);
    MUST(sVALID_UTF8(sONE_LINE(s)) == sONE_LINE(s));
}

void PATTERNS(const std::string& s, bool bPerl)
{
    const std::string sPattern = s.substr(0, s.find('\n'));
    const std::string sLine = s.substr(std::min(sPattern.size() + 1, s.size()));
    iPATTERN_HIT(sPattern, sLine);
    if (!sPattern.empty() && sPattern != "OR" &&
        sPattern.find_first_of("|^# \t\r") == std::string::npos)
        MUST(iPATTERN_HIT(sPattern, "127.0.0.1 " + sPattern + " # " + sLine) &&
             iPATTERN_HIT(sLine + "|" + sPattern + "^", "x" + sPattern));
    char* cpFirst = nullptr;
    char* cpSecond = nullptr;
    pscanf(s.c_str(), R"((.*[-_])?(.*?\..*\..*-.*?)\..*)", &cpFirst, &cpSecond);
    if (bPerl) pscanf(sLine.c_str(), sPattern.c_str(), &cpFirst, &cpSecond);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize)
{
    if (uSize < 2) return 0;
    const std::string s(reinterpret_cast<const char*>(pData + 2), uSize - 2);
    MARKS(s, 1 + pData[0]);
    WORDS(s);
    if (pData[1] % 4 == 0) REPORT(s);
    if (pData[1] % 4 == 1) PATTERNS(s, pData[1] % 8 == 1);
    return 0;
}
