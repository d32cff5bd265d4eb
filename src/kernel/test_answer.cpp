/* Judges a test backup by the output that the backup client wrote: its numbered
   markers first, then error lines; the first kind that is found decides. */
#include "vk_config_client.h"

namespace {

/* Searches the output for a pattern; a hit leaves the line in szLine, with a blank for
   each control character, as it reaches the client's row. */
int iFOUND(const char* cpFile, const char* cpPattern, char (&szLine)[1024])
{
    iTEXT_SET(szLine, cpPattern);
    TRACE("check for %s", szLine);
    if (file_search2(cpFile, szLine, sizeof szLine, 32) == 0) return 0;
    iTEXT_SET(szLine, sONE_LINE(szLine));
    TRACE("test received line %s", sFOREIGN(szLine).c_str());
    return 1;
}

int iJUDGE(SCT_ARGS* pArg, const char* cpFile, char* cpRet, size_t uSize)
{
    char szLine[1024];
    for (const char* cpDone : {"qtc-3007:^", "qtc-2032:^"}) {
        if (!iFOUND(cpFile, cpDone, szLine)) continue;
        MESSAGE(cpRet, uSize, MSG_I005, pArg->szNodeName);
        i_FILE_DELETE(cpFile, strLog);
        return 1;
    }
    if (iFOUND(cpFile, "qtc-1009:^", szLine)) {
        MESSAGE(cpRet, uSize, MSG_E013, pArg->szNodeName, pArg->szVelkaNode);
    } else if (iFOUND(cpFile, "ERROR:|OR|Error^", szLine)) {
        PROT_MESSAGE(MSG_E003, {szLine});
        iTEXT_COPY(cpRet, uSize, szLine);
        CREATE_USER_INFO(pArg, cpRet, uSize);
    } else {
        MESSAGE(cpRet, uSize, MSG_E012, pArg->szNodeName);
    }
    return 0;
}

}  // namespace

int iANALYSE_TEST_ANSWER(SCT_ARGS* pArg, const char* cpFile, char* cpRet, size_t uSize)
{
    TRACE("+++ iANALYSE_TEST_ANSWER  %s", cpFile);
    const int iRet = iJUDGE(pArg, cpFile, cpRet, uSize);
    TRACE("--- iANALYSE_TEST_ANSWER returns %d - %s", iRet, cpRet);
    return iRet;
}
