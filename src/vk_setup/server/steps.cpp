#include "steps.h"

#include <unistd.h>

#include <cstdio>

#include "common/common.h"

namespace {

int iLines = 0;
int iWrong = 0;
int iOpenSteps = 0;

void LINE(const char* cpWord, const std::string& sText)
{
    std::printf("%-7s %s\n", cpWord, sSAFE_LINE(sText).c_str());
    std::fflush(stdout);
}

}  // namespace

int iSTEP(STEP eStep, const std::string& sText)
{
    constexpr const char* acpWord[] = {"there", "made", "to do", "failed"};
    const bool            bDone = eStep == STEP_THERE || eStep == STEP_MADE;
    if (!bDone) iOpenSteps++;
    const bool bRights =
        eStep == STEP_FAILED && geteuid() != 0 && sText.find("ermission") != std::string::npos;
    LINE(acpWord[eStep], bRights ? sText + "; run it as root" : sText);
    return bDone;
}

void v_STEP_MORE(const std::string& sText)
{
    LINE("", "  " + sText);
}

void v_GOOD(const std::string& sWhat)
{
    iLines++;
    LINE("good", sWhat);
}

void v_WRONG(const std::string& sWhat, const std::string& sCause, const std::string& sCommand)
{
    iLines++;
    iWrong++;
    LINE("wrong", sWhat + ": " + sCause + "; mend: " + sCommand);
}

void v_WRONG_ADVICE(const std::string& sWhat, const std::string& sCause, const std::string& sAdvice)
{
    iLines++;
    iWrong++;
    LINE("wrong", sWhat + ": " + sCause + "; " + sAdvice);
}

int iCHECKED()
{
    return iLines;
}

int iFAULTS()
{
    return iWrong;
}

int iREPORT_EXIT()
{
    return iWrong + iOpenSteps > 0 ? 1 : 0;
}
