/* Turns the raw error line of a failed command into one message that tells the
   user what is wrong and what to do. */
#include <algorithm>
#include <cstring>

#include "vk_config_client.h"

namespace {

enum FAILURE { FAIL_NAME, FAIL_NOT_STARTED, FAIL_NOT_PERMITTED, FAIL_OTHER };

struct CAUSE {
    const char* cpText;
    FAILURE     eFailure;
};

constexpr CAUSE asctCause[] = {
    // the first hit decides
    {"Authoritative Answer Host not found", FAIL_NAME},
    {"Host is unknown", FAIL_NAME},
    {"Connection refused", FAIL_NOT_STARTED},
    {"is not allowed to connect or security problem for user", FAIL_NOT_PERMITTED},
    {"Error: Authentication failed", FAIL_NOT_PERMITTED},
};

FAILURE eCLASSIFY(const char* cpLine)
{
    for (const CAUSE& cause : asctCause)
        if (std::strstr(cpLine, cause.cpText) != nullptr) return cause.eFailure;
    return FAIL_OTHER;
}

}  // namespace

void CREATE_USER_INFO(SCT_ARGS* pArg, char* cpRet, size_t uSize)
{
    TRACE("+++ CREATE_USER_INFO %s", sFOREIGN(cpRet).c_str());
    const FAILURE eFailure = eCLASSIFY(cpRet);
    if (eFailure != FAIL_NAME) TRACE("CREATE_USER_INFO %s", sFOREIGN(cpRet).c_str());
    switch (eFailure) {
        case FAIL_NAME:
            MESSAGE(cpRet, uSize, MSG_E009, pArg->szNodeName);
            break;
        case FAIL_NOT_STARTED:
            MESSAGE(cpRet, uSize, MSG_E010, pArg->szNodeName);
            FPROT(0, cpRet);
            PROT_MESSAGE(MSG_I006, {pArg->szNodeName});
            PROT_MESSAGE(MSG_I007, {});
            break;
        case FAIL_NOT_PERMITTED:
            MESSAGE(cpRet, uSize, MSG_E011, pArg->szVelkaNode, pArg->szNodeName);
            break;
        case FAIL_OTHER:
            char szSl[512];
            MESSAGE(szSl, MSG_E002, pArg->szNodeName, cpRet);
            iTEXT_COPY(cpRet, uSize, szSl);
            break;
    }
    TRACE("--- CREATE_USER_INFO %s", cpRet);
}

char* szEXTRACT_AUTH_DATA(char* cpAuthLine)
{
    TRACE("+++ szEXTRACT_AUTH_DATA %s", sFOREIGN(cpAuthLine).c_str());
    char szBuf[512];
    iTEXT_SET(szBuf, cpAuthLine);
    // What is written is always shorter than what was read, so it fits in place.
    char*       cpEnd = cpAuthLine;
    const char* cpRest = szBuf;
    *cpEnd = '\0';
    for (int iPart = 1; iPart <= 2; ++iPart) {
        const char* cpLeft = std::strchr(cpRest, '[');
        const char* cpRight = cpLeft != nullptr ? std::strchr(cpLeft, ']') : nullptr;
        if (cpRight == nullptr) {
            TRACE("--- szEXTRACT_AUTH_DATA  missing [ or ]");
            return cpAuthLine;
        }
        cpEnd = std::copy(cpLeft + 1, cpRight, cpEnd);
        if (iPart == 1) *cpEnd++ = ' ';
        *cpEnd = '\0';
        if (iPart == 1) TRACE("first part: %s", sFOREIGN(cpAuthLine).c_str());
        cpRest = cpRight + 1;
    }
    TRACE("--- szEXTRACT_AUTH_DATA %s", sFOREIGN(cpAuthLine).c_str());
    return cpAuthLine;
}
