/* Which version a package carries, and whether a client may receive it: the rules of an
   update, for the run that updates and for whoever wants to know beforehand. Each decides
   from what is handed in; nothing is read, told or kept here. */
#pragma once

#include <string>
#include <string_view>

/* A client, as its system's name (column os) tells it. */
struct CLIENT_KIND {
    bool        bWindows;     // letter case of the "W" does not matter
    const char* cpExtension;  // of the update script: ".cmd" for "Windows", or empty
};
CLIENT_KIND sctCLIENT_KIND(std::string_view svOs);

/* Where the server has a package: the path, or a symbolic one for a bare name. Beside it may
   lie a detached signature, whose name ends with one of these. */
std::string           sPACKAGE_SOURCE(const std::string& sPackage);
constexpr const char* acpSIGNATURE_SUFFIX[] = {".sig", ".asc"};

/* What the name of a package says. */
struct PACKAGE_VERSION {
    std::string sLeading;          // what stands before the version; a service pack's number
    std::string sText;             // the version; empty: none was found
    long        lNumber = 0;       // the version as l_cli_version makes it; 0: none
    long        lServicepack = 0;  // number of the service pack; 0 for a package
};

/* "5.2.0-4" of the number that l_cli_version makes of it. */
std::string sVERSION_TEXT(long lNumber);

/* cpPackage     name or path of the package
   bServicepack  it is a service pack, whose name differs by the kind of client
   Result        lNumber 0 when the name does not tell a version */
PACKAGE_VERSION sctPACKAGE_VERSION(const char* cpPackage, bool bServicepack, bool bWindows);

/* Why nobody, or no client of that system, receives the package, as the run's message says
   it. Empty: neither name nor system is in the way. */
std::string sPACKAGE_REFUSED(const char* cpPackage, const PACKAGE_VERSION& version,
                             std::string_view svOs);

/* A package of the installed version is refused, unless it is forced; a service pack needs
   that version, and may be applied again. Another version, lower or higher, is taken.
   lInstalled  as l_cli_version makes it; 0: unknown */
bool bREFUSED_AS_SAME(const PACKAGE_VERSION& version, long lInstalled, bool bServicepack,
                      bool bForce);

/* How the run's message begins for a client that has the version, and whether it does. */
std::string sSAME_VERSION(const std::string& sName);
bool        bSAME_VERSION(std::string_view svMessage);
