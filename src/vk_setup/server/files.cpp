#include "files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string_view>
#include <vector>

#include "common/base/replace.h"
#include "common/common.h"

namespace fs = std::filesystem;

namespace {

/* The section that a line opens, null when it opens none. The first line may begin with
   the mark by which some editors tell UTF-8. */
bool bSECTION(std::string_view svLine, std::string_view& svName)
{
    if (svLine.starts_with("\xEF\xBB\xBF")) svLine.remove_prefix(3);
    svLine = svTRIMMED(svLine);
    if (!svLine.starts_with('[') || svLine.find(']') == svLine.npos) return false;
    svName = svLine.substr(1, svLine.find(']') - 1);
    return true;
}

/* 1 the line sets the key, -1 it is the key's commented default, 0 neither. */
int iSETS(std::string_view svLine, std::string_view svKey)
{
    svLine = svTRIMMED(svLine);
    const bool bComment = svLine.starts_with(';') || svLine.starts_with('#');
    if (bComment) svLine = svTRIMMED(svLine.substr(1));
    if (!svLine.starts_with(svKey)) return 0;
    svLine = svTRIMMED(svLine.substr(svKey.size()));
    if (!svLine.starts_with('=') && !svLine.starts_with(':')) return 0;
    return bComment ? -1 : 1;
}

/* Where the key's line goes: the line that it replaces, or the one that it follows. */
struct PLACE {
    size_t uLine = 0;
    int    iRank = 0;  // 0 no such section, 1 section, 2 commented default, 3 set
};

PLACE sctPLACE(const std::vector<std::string>& asLine, const std::string& sSection,
               const std::string& sKey)
{
    PLACE place;
    bool  bInside = false;
    for (size_t u = 0; u < asLine.size(); u++) {
        std::string_view svName;
        int              iRank = 0;
        if (bSECTION(asLine[u], svName)) {
            bInside = svName == sSection;
            iRank = bInside ? 1 : 0;
        } else if (bInside) {
            const int iSets = iSETS(asLine[u], sKey);
            iRank = iSets > 0 ? 3 : iSets < 0 ? 2 : 0;
        }
        // Of two lines that set it the last one counts for the reader as well.
        if (iRank > place.iRank || (iRank == 3 && place.iRank == 3)) place = {u, iRank};
    }
    return place;
}

}  // namespace

int iREPLACE_FILE(const std::string& sFile, const std::string& sText, mode_t uMode,
                  std::string& sReason)
{
    // A link stays one: what it leads to is replaced.
    std::error_code   error;
    const std::string sTarget = fs::weakly_canonical(sFile, error).string();
    REPLACEMENT       file{error ? sFile : sTarget, "", uMode};
    struct stat       sctOld {};
    file.sNew = file.sFile + ".new";
    if (stat(sFile.c_str(), &sctOld) == 0) {
        file.uMode = sctOld.st_mode & 07777U;
        file.uOwner = sctOld.st_uid;
        file.uGroup = sctOld.st_gid;
    }
    unlink(file.sNew.c_str());
    return iREPLACE(file, sText) || iCANNOT("write", sFile, sReason);
}

int iINI_SET(const std::string& sFile, const std::string& sSection, const std::string& sKey,
             const std::string& sValue, std::string& sReason)
{
    std::string sText;
    if (!iREAD_FILE(sFile, sText) && errno != ENOENT) return iCANNOT("read", sFile, sReason);
    const auto               asvLine = asvPIECES(sText);
    std::vector<std::string> asLine(asvLine.begin(), asvLine.end());
    const PLACE              place = sctPLACE(asLine, sSection, sKey);
    const std::string        sLine = sKey + " = " + sValue;
    const auto               itAfter = asLine.begin() + static_cast<long>(place.uLine);
    if (place.iRank == 3)
        asLine[place.uLine] = sLine;
    else if (place.iRank > 0)
        asLine.insert(itAfter + 1, sLine);
    else
        asLine.insert(asLine.end(), {"[" + sSection + "]", sLine});
    sText.clear();
    for (const std::string& s : asLine) sText += s + "\n";
    if (!iMAKE_DIRECTORY(sFOLDER(sFile))) return iCANNOT("make", sFOLDER(sFile), sReason);
    return iREPLACE_FILE(sFile, sText, 0640, sReason);
}

std::string sPRODUCT_FILE(const std::string& sName)
{
    std::error_code error;
    fs::path        place = fs::read_symlink("/proc/self/exe", error).parent_path();
    for (int i = 0; i < 6 && !place.empty() && place != "/"; i++, place = place.parent_path())
        for (const fs::path& candidate : {place / "share/vk_config_client" / sName, place / sName})
            if (fs::is_regular_file(candidate, error)) return candidate.string();
    return "";
}

std::string sFOLDER(const std::string& sFile)
{
    const size_t uSlash = sFile.rfind('/');
    return uSlash == std::string::npos ? "./" : sFile.substr(0, uSlash + 1);
}
