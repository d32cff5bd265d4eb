/* Keys of this server, and the line that admits them on a client. */
#include <cstdio>
#include <cstdlib>

#include "../programs.h"
#include "common/common.h"
#include "setup.h"

namespace {

/* A host that no block of a configuration is meant for. */
constexpr char szNO_HOST[] = "velka.invalid";

std::string sHOME_EXPANDED(const std::string& sFile)
{
    const char* cpHome = std::getenv("HOME");
    return sFile.starts_with("~/") && cpHome != nullptr ? cpHome + sFile.substr(1) : sFile;
}

/* Type, key and comment as words of their own, so that the line needs no quotes and can
   also be pasted where no shell reads it. A comment that would need some is left out. */
void ADD_KEY(const std::string& sPublic, std::vector<std::string>& asWord)
{
    const auto asvWord = asvPIECES(sPublic, ' ');
    for (size_t u = 0; u < std::min<size_t>(asvWord.size(), 3); u++)
        if (std::string sWord(asvWord[u]); u < 2 || sTYPED({sWord}) == sWord)
            asWord.push_back(std::move(sWord));
}

/* The values that ssh takes from a configuration for a keyword in lower case. */
std::vector<std::string> asVALUES(const std::string& sConfig, std::string_view svKeyword,
                                  std::string& sError)
{
    std::vector<std::string> asValue;
    std::vector<std::string> asCommand{"ssh", "-G"};
    if (!sConfig.empty()) asCommand.insert(asCommand.end(), {"-F", sConfig});
    asCommand.insert(asCommand.end(), {"--", szNO_HOST});
    const PROGRAM_RUN run = sctRUN_PROGRAM(asCommand);
    if (!run.bGood()) {
        // The first line says where; the last one only counts.
        sError = run.sOut.substr(0, run.sOut.find_first_of("\r\n"));
        return asValue;
    }
    for (const std::string_view svLine : asvPIECES(run.sOut))
        if (svLine.starts_with(svKeyword) && svLine.substr(svKeyword.size()).starts_with(' '))
            asValue.push_back(sHOME_EXPANDED(std::string(svLine.substr(svKeyword.size() + 1))));
    return asValue;
}

}  // namespace

std::vector<std::string> asIDENTITIES(const std::string& sConfig, std::string& sError)
{
    return asVALUES(sConfig, "identityfile", sError);
}

int iAGENT_HOLDS(const std::string& sConfig, const std::string& sKey, std::string& sError)
{
    const std::vector<std::string> asAgent = asVALUES(sConfig, "identityagent", sError);
    if (!sError.empty()) return 0;
    std::vector<std::string> asCommand{"env"};
    if (!asAgent.empty() && asAgent[0] == "none")
        return iREASON(sError, "IdentityAgent in " + sConfig + " is none");
    if (!asAgent.empty() && asAgent[0].starts_with('/'))
        asCommand.push_back("SSH_AUTH_SOCK=" + asAgent[0]);
    asCommand.insert(asCommand.end(), {"ssh-add", "-T", sKey});
    const PROGRAM_RUN run = sctRUN_PROGRAM(asCommand);
    if (!run.bGood()) sError = sLAST_LINE(run.sOut);
    return run.bGood() ? 1 : 0;
}

int iAGENT_KEY(const std::string& sKey)
{
    std::string sText;
    return iREAD_FILE(sKey, sText) && sText.find(" AAAA") < sText.find('\n');
}

int iPUBLIC_KEY(const std::string& sKey, std::string& sPublic, std::string& sError)
{
    for (const std::string& sFile : {iAGENT_KEY(sKey) ? sKey : "", sKey + ".pub"}) {
        if (sFile.empty() || !iREAD_FILE(sFile, sPublic) || sLAST_LINE(sPublic).empty()) continue;
        sPublic = sLAST_LINE(sPublic);
        return 1;
    }
    const PROGRAM_RUN run = sctRUN_PROGRAM({"ssh-keygen", "-y", "-P", "", "-f", sKey});
    if (run.bGood()) {
        sPublic = sLAST_LINE(run.sOut);
        return 1;
    }
    return iREASON(sError, sLAST_LINE(run.sOut));
}

int iPERMIT_LINE(const std::string& sMode, std::string& sLine, std::string& sError)
{
    std::string sConfig;
    if (!iCONFIG_ACCESS(sMode.c_str(), sConfig))
        return iREASON(sError, "access mode \"" + sMode + "\" is not configured");
    const std::string sName = sSERVER_NAME(sError);
    if (sName.empty())
        return iREASON(sError, "the server's name cannot be read from the database: " + sError);
    std::vector<std::string> asWord{"vk_setup", "set_client", sName, "--mode", sMode};
    const size_t             uWithoutKey = asWord.size();
    for (const std::string& sKey : asIDENTITIES(sConfig, sError)) {
        std::string sPublic;
        std::string sIgnored;
        if (iPUBLIC_KEY(sKey, sPublic, sIgnored)) ADD_KEY(sPublic, asWord);
    }
    if (asWord.size() > uWithoutKey) {
        sLine = sTYPED(asWord);
        return 1;
    }
    if (sError.empty())
        sError = "the ssh configuration of mode " + sMode + " names no existing key; run " +
                 "vk_setup server";
    return 0;
}

int iPERMIT(const SETUP_ARGS& args)
{
    std::string sLine;
    std::string sError;
    if (!iPERMIT_LINE(args.sMode, sLine, sError)) {
        v_STDERR("cannot form the line: %s", sError.c_str());
        return 1;
    }
    std::printf("%s\n", sLine.c_str());
    return 0;
}
