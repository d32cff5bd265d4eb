/* The report of "qtc -h": KEY=value lines among other lines. */
#include <strings.h>

#include <span>
#include <string_view>

#include "../log/outcome_log.h"
#include "../text/text.h"
#include "cause.h"
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

/* The run's record has what the client had at first, and has now. A report without a
   version is a failure of its own. */
void NOTE_VERSION(t_LL LL_Output, const char* cpVersion, const char* cpVelkaVersion)
{
    RUN_RECORD& record = sctRUN_RECORD();
    if (*cpVersion != '\0') {
        record.sVersionAfter = *cpVelkaVersion != '\0' ? cpVelkaVersion : cpVersion;
        if (record.sVersionBefore.empty()) record.sVersionBefore = record.sVersionAfter;
        return;
    }
    const void* pLast = LastElmLL(LL_Output);
    record.diagnosis = sctDIAGNOSIS(sctCAUSE("no-version"), {{"program", "qtc"}});
    if (pLast != nullptr) record.diagnosis.asWords = {static_cast<const char*>(pLast)};
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
    const int iFound = iTAKE(LL_Output, asctField);
    NOTE_VERSION(LL_Output, cpVersion, cpVelkaVersion);
    return iFound;
}

int iREPORT_VERSIONS(t_LL LL_Output, char* cpVersion, char* cpInstalled)
{
    FIELD asctField[] = {{"QTC_VERSION", cpVersion, 256, false},
                         {"VELKA_VERSION", cpInstalled, 256, false}};
    *cpVersion = *cpInstalled = '\0';
    const int iFound = iTAKE(LL_Output, asctField);
    NOTE_VERSION(LL_Output, cpVersion, cpInstalled);
    return iFound;
}
