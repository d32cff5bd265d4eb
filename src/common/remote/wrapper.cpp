#include "wrapper.h"

#include <sys/random.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <utility>

#include "../base/immortal.h"
#include "../base/program.h"

namespace {

constexpr size_t uNOISE_MAX = 65536;

std::string sRANDOM_MARK()
{
    uint8_t acBytes[16] = {};
    if (getrandom(acBytes, sizeof acBytes, 0) < 0) acBytes[0] = 1;
    std::string sMark = "vk-";
    for (uint8_t uByte : acBytes) {
        sMark += "0123456789abcdef"[uByte >> 4];
        sMark += "0123456789abcdef"[uByte & 15];
    }
    return sMark;
}

std::string_view svWITHOUT_SEPARATOR(std::string_view svDirectory)
{
    while (svDirectory.size() > 1 && (svDirectory.back() == '/' || svDirectory.back() == '\\'))
        svDirectory.remove_suffix(1);
    return svDirectory;
}

/* A word of a script that is read as one line: a line feed stands as a variable,
   between the quotes that surround it. */
std::string sON_ONE_LINE(std::string_view svWord)
{
    std::string sLine;
    for (const char c : sSHELL_WORD(SHELL_POSIX, svWord))
        c == '\n' ? sLine.append("'\"$vk_lf\"'") : sLine.append(1, c);
    return sLine;
}

}  // namespace

const std::string& sRUN_MARK()
{
    static IMMORTAL<std::string> mark;
    if (mark.Get().empty()) mark.Get() = sRANDOM_MARK();
    return mark.Get();
}

int iLEFT_TO_FINISH(std::string_view svCommand)
{
    const std::string_view svProgram = svCommand.substr(0, svCommand.find(' '));
    const auto&            names = sctPROGRAM.leftToFinish;
    return std::find(names.begin(), names.end(), svProgram) != names.end();
}

/* Shells read byte by byte here, as what follows the line is not theirs. */
const char* const cpPOSIX_READER = "IFS= read -r vk; eval \"$vk\"";

/* The group is the session's own: sshd and iCHILD_START both start a new session. */
std::string sPOSIX_SCRIPT(std::string_view svCommand, const std::string& sDirectory)
{
    const std::string& sMark = sRUN_MARK();
    const std::string  sPath = sON_ONE_LINE(svWITHOUT_SEPARATOR(sDirectory));
    const std::string  sEval = "eval " + sON_ONE_LINE(svCommand);
    const std::string  sEnd = "s=$?; printf \"\\n%s %d\\n\" " + sMark + " $s";

    // What only repeats its input, as cat does, must not show the mark of the begin.
    std::string sScript = "PATH=" + sPath + ":$PATH; export PATH; echo " + sMark + " 'begin'; ";
    if ((sPath + sEval).find("$vk_lf") != std::string::npos)
        sScript.insert(0, "vk_lf=$(printf '\\n_'); vk_lf=${vk_lf%_}; ");
    if (iLEFT_TO_FINISH(svCommand)) {
        // Its output goes on through cat until nobody listens any more, and is
        // thrown away from then on: a broken pipe must not end it.
        return sScript + "trap \"\" HUP; { ( " + sEval + " ) </dev/null 2>&1; " + sEnd +
               "; } | { trap \"\" PIPE HUP; cat 2>/dev/null; cat >/dev/null; }\n";
    }
    sScript += "exec 3<&0 </dev/null; ";
    sScript +=
        "( trap \"\" TERM HUP; read -r x <&3; kill -TERM 0; sleep 3; kill -KILL 0 ) "
        ">/dev/null 2>&1 & w=$! ; ";
    sScript += "( exec 3<&-; " + sEval + " ) 2>&1; s=$?; ";
    return sScript + "exec 2>/dev/null; kill -KILL $w; printf \"\\n%s %d\\n\" " + sMark + " $s\n";
}

/* %^ERRORLEVEL% is read only when "call" reads its line again, after the command
   has ended. A POSIX shell that gets this line would show the "^" of the first mark, and
   has no file NUL to begin the command with. */
std::string sWINDOWS_LINE(std::string_view svCommand, const std::string& sDirectory)
{
    const std::string& sMark = sRUN_MARK();
    return "echo " + sMark + " ^begin& set \"PATH=" + std::string(svWITHOUT_SEPARATOR(sDirectory)) +
           ";%PATH%\"& " + std::string(svCommand) + " <NUL 2>&1& echo.& call echo " + sMark +
           " %^ERRORLEVEL%";
}

/* Without echo, so that nothing of the line comes back, without the programs that the
   registry starts, and without "!" as a character of its own. Standard input is read in
   the console's code page, arguments are not. */
std::string sWINDOWS_READER(std::string_view svLine)
{
    const bool bASCII =
        std::none_of(svLine.begin(), svLine.end(), [](char c) { return (c & 0x80) != 0; });
    return std::string(bASCII ? "" : "chcp 65001 >NUL& ") + "cmd /d /q /v:off";
}

/* Bytes are looked at once, however they are cut: what cannot belong to a mark any
   more is handed out or forgotten. */
std::string MARK_READER::sFeed(std::string_view svBytes)
{
    std::string sOutput;
    if (m_eState == ENDED) return sOutput;
    m_sHeld += svBytes;
    if (m_eState == BEFORE && !bTakeBegin()) return sOutput;
    if (bTakeEnd(sOutput)) return sOutput;
    // A mark may have begun in the last bytes; what stands before cannot be one.
    const size_t uMark = sRUN_MARK().size() + 32;
    if (m_sHeld.size() <= uMark) return sOutput;
    size_t uKeep = m_sHeld.find('\n', m_sHeld.size() - uMark);
    if (uKeep == std::string::npos) uKeep = m_sHeld.size();
    if (uKeep > 0 && m_sHeld[uKeep - 1] == '\r') --uKeep;
    sOutput.append(m_sHeld, 0, uKeep);
    m_sHeld.erase(0, uKeep);
    return sOutput;
}

std::string MARK_READER::sRest()
{
    if (m_eState == BEFORE) {
        m_sNoise = m_sHeld;
        m_sHeld.clear();
    }
    return std::exchange(m_sHeld, {});
}

bool MARK_READER::bTakeBegin()
{
    const std::string sBegin = sRUN_MARK() + " begin";
    const size_t      uAt = m_sHeld.find(sBegin, m_uSeen);
    const size_t      uEnd = uAt == std::string::npos ? uAt : m_sHeld.find('\n', uAt);
    if (uEnd == std::string::npos) {
        if (m_sHeld.size() > 2 * uNOISE_MAX) m_sHeld.erase(0, m_sHeld.size() - uNOISE_MAX);
        const size_t uTail = std::min(m_sHeld.size(), sBegin.size());
        m_uSeen = uAt == std::string::npos ? m_sHeld.size() - uTail : 0;
        return false;
    }
    m_sNoise = m_sHeld.substr(0, uAt);
    m_sHeld.erase(0, uEnd + 1);
    m_eState = RUNNING;
    return true;
}

bool MARK_READER::bTakeEnd(std::string& sOutput)
{
    const std::string sMark = "\n" + sRUN_MARK() + " ";
    // memmem, as std::string stops at every line feed.
    const void*  pAt = memmem(m_sHeld.data(), m_sHeld.size(), sMark.data(), sMark.size());
    const size_t uAt = pAt == nullptr
                           ? std::string::npos
                           : static_cast<size_t>(static_cast<const char*>(pAt) - m_sHeld.data());
    const size_t uEnd = uAt == std::string::npos ? uAt : m_sHeld.find('\n', uAt + 1);
    if (uEnd == std::string::npos) return false;
    std::from_chars(m_sHeld.data() + uAt + sMark.size(), m_sHeld.data() + uEnd, m_lStatus);
    sOutput.append(m_sHeld, 0, uAt > 0 && m_sHeld[uAt - 1] == '\r' ? uAt - 1 : uAt);
    m_sHeld.clear();
    m_eState = ENDED;
    return true;
}
