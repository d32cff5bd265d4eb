#include "transport.h"

#include "../config/variables.h"
#include "../lines/standard_error.h"
#include "../text/text.h"

TRANSPORT& TRANSPORT_OF(const HOST& host)
{
    if (host.bLocal) return LOCAL_TRANSPORT();
    // The gate is for clients with a POSIX system.
    const bool bGate = host.sAccessMode == "CTRL" && eSHELL_OF(host) == SHELL_POSIX;
    return bGate ? CTRL_TRANSPORT() : SSH_TRANSPORT();
}

int iCLIENT_PATH(const HOST& host, const char* cpPath, std::string& sPath, std::string& sReason)
{
    const std::string sText = cpPath;
    const size_t      uColon = sText.find(':');
    if (sText[0] == '/' || uColon == std::string::npos || uColon == 1) {
        sPath = sText;
        return 1;
    }
    const std::string sKey = sText.substr(0, uColon);
    if (!iCONFIG_CLIENT_DIRECTORY(host.sPlatform.c_str(), sKey.c_str(), sPath))
        return iREASON(sReason, "unknown directory key \"" + sONE_LINE(sKey) + "\"");
    // A relative part that looks absolute lies below the key's directory all the same.
    const bool   bWindows = iWINDOWS_CLASS(host.sPlatform.c_str()) != 0;
    const bool   bDrive = bWindows && sText.find(':', uColon + 1) == uColon + 2;
    const size_t uRelative =
        sText.find_first_not_of(bWindows ? "/\\" : "/", uColon + (bDrive ? 3 : 1));
    if (uRelative != std::string::npos) sPath += sText.substr(uRelative);
    return 1;
}
