#include "os_release.h"

#include <sys/stat.h>

#include "common/base/descriptor.h"
#include "common/text/text.h"

namespace {

struct SYSTEM {
    const char* cpId;  // ID of os-release
    const char* cpName;
};

constexpr SYSTEM asctSystem[] = {
    {"almalinux", "AlmaLinux"},
    {"amzn", "Amazon Linux"},
    {"arch", "Arch Linux"},
    {"centos", "CentOS"},
    {"debian", "Debian"},
    {"fedora", "Fedora"},
    {"ol", "Oracle Linux"},
    {"opensuse", "openSUSE"},
    {"opensuse-leap", "openSUSE"},
    {"opensuse-tumbleweed", "openSUSE"},
    {"rhel", "Red Hat Enterprise Linux"},
    {"rocky", "Rocky Linux"},
    {"sles", "SUSE Linux Enterprise Server"},
    {"ubuntu", "Ubuntu"},
};

/* The value of KEY=VALUE or KEY="VALUE". */
std::string sVALUE_OF(const std::string& sText, const std::string& sKey)
{
    const size_t uAt = ("\n" + sText).find("\n" + sKey + "=");
    if (uAt == std::string::npos) return "";
    std::string s = sText.substr(uAt + sKey.size() + 1);
    s.resize(std::min(s.find('\n'), s.size()));
    if (s.size() >= 2 && (s[0] == '"' || s[0] == '\'')) s = s.substr(1, s.find(s[0], 1) - 1);
    return s;
}

}  // namespace

std::vector<std::string> asSYSTEM_NAMES()
{
    std::string sText;
    if (!iREAD_FILE("/etc/os-release", sText)) iREAD_FILE("/usr/lib/os-release", sText);
    std::vector<std::string> asName;
    struct stat              sctStat {};
    if (stat("/etc/pve", &sctStat) == 0) asName.emplace_back("Proxmox VE");
    // The system itself, then those that it says it is like.
    const std::string sIds = sVALUE_OF(sText, "ID") + " " + sVALUE_OF(sText, "ID_LIKE");
    for (const std::string_view svId : asvPIECES(sIds, ' '))
        for (const SYSTEM& system : asctSystem)
            if (svId == system.cpId) asName.emplace_back(system.cpName);
    asName.emplace_back("Linux");
    return asName;
}
