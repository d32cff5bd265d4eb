/* What a program on a client has written: the line that tells an error, and the report of
   "qtc -h", KEY=value lines among other lines. */
#include <strings.h>

#include <cstring>
#include <span>
#include <string_view>

#include "../text/text.h"
#include "cm_remote.h"

namespace {

bool bSAME_KEY(std::string_view svLeft, std::string_view svRight)
{
    return svLeft.size() == svRight.size() &&
           strncasecmp(svLeft.data(), svRight.data(), svLeft.size()) == 0;
}

struct FIELD {
    std::string_view svKey;
    char*            cpValue;
    size_t           uValue;
    bool             bFound;
};

void TAKE_LINE(std::string_view svLine, std::span<FIELD> fields)
{
    const size_t uEqual = svLine.find('=');
    if (uEqual == std::string_view::npos) return;
    const std::string_view svKey = svTRIMMED(svLine.substr(0, uEqual));
    for (FIELD& field : fields) {
        if (field.bFound || !bSAME_KEY(svKey, field.svKey)) continue;
        iTEXT_COPY(field.cpValue, field.uValue, svTRIMMED(svLine.substr(uEqual + 1)));
        field.bFound = true;
    }
}

/* Takes the fields out of a report. The first one is what matters most: result 1 it
   is there and not empty. */
int iTAKE(t_LL LL_Output, std::span<FIELD> fields)
{
    for (void* p = FirstElmLL(LL_Output); IsElmLL(p); p = NextElmLL(p))
        TAKE_LINE(static_cast<const char*>(p), fields);
    return fields[0].cpValue[0] != '\0';
}

}  // namespace

int i_search_client_info(t_LL LL_Output, char* cpVersion, char* cpVelkaVersion, char* cpCores,
                         char* cpOs, char* cpHw, char* cpPackage, char* cpExType,
                         char* cpInstallationDate, char* cpUpdateDate, char* cpUpdateState,
                         char* cpUpdateMessage, char* cpServicepackNumber,
                         char* cpServicepackPackage, char* cpServicepackDate,
                         char* cpModuleVersions, str_log)
{
    FIELD asctField[] = {
        {"QTC_VERSION", cpVersion, 256, false},
        {"VELKA_VERSION", cpVelkaVersion, 256, false},
        {"CORES", cpCores, 22, false},
        {"OS", cpOs, 256, false},
        {"HW", cpHw, 256, false},
        {"PACKAGE", cpPackage, 256, false},
        {"EX_TYPE", cpExType, 256, false},
        {"INSTALLATION_DATE", cpInstallationDate, 256, false},
        {"UPDATE_DATE", cpUpdateDate, 256, false},
        {"UPDATE_STATE", cpUpdateState, 256, false},
        {"UPDATE_MESSAGE", cpUpdateMessage, 256, false},
        {"SERVICEPACK_NUMBER", cpServicepackNumber, 256, false},
        {"SERVICEPACK_PACKAGE", cpServicepackPackage, 256, false},
        {"SERVICEPACK_DATE", cpServicepackDate, 256, false},
        {"MODULE_VERSIONS", cpModuleVersions, 256, false},
    };
    return iTAKE(LL_Output, asctField);
}

int iREPORT_VERSIONS(t_LL LL_Output, char* cpVersion, char* cpInstalled)
{
    FIELD asctField[] = {{"QTC_VERSION", cpVersion, 256, false},
                         {"VELKA_VERSION", cpInstalled, 256, false}};
    *cpVersion = *cpInstalled = '\0';
    return iTAKE(LL_Output, asctField);
}

int iERROR_LINE(t_LL LL_Output, char* cpLine, size_t uLine)
{
    iTEXT_COPY(cpLine, uLine, "ssh:|Error:^");
    if (i_LL_search(LL_Output, cpLine, uLine) > 0) return 1;
    const char* cpLast = nullptr;
    for (void* p = FirstElmLL(LL_Output); IsElmLL(p); p = NextElmLL(p)) {
        const char* cpText = static_cast<const char*>(p);
        if (cpText[std::strspn(cpText, " \t")] != '\0') cpLast = cpText;
    }
    iTEXT_COPY(cpLine, uLine, cpLast != nullptr ? cpLast : "No message found");
    return cpLast != nullptr;
}
