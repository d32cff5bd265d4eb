/* Files: existence, search, deletion. */
#include "file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "../base/descriptor.h"
#include "../base/holder.h"
#include "../lines/standard_error.h"
#include "../log/protocol.h"
#include "../text/pattern.h"
#include "../text/text.h"

namespace {

constexpr size_t uFILE_MAX = size_t{64} << 20;  // far above what is kept of any output

/* The line as it is searched: no control characters but the tab, which parts
   words; valid UTF-8. */
std::string sCLEAN_LINE(std::string_view svLine)
{
    std::string s(svLine);
    std::erase_if(s, [](char c) {
        const auto uc = static_cast<unsigned char>(c);
        return (uc < 0x20U && c != '\t') || uc == 0x7FU;
    });
    return sVALID_UTF8(s);
}

}  // namespace

int file_exist(const char* cpPath)
{
    return access(cpPath, F_OK) == 0;
}

int file_search2(const char* cpPath, char* cpPattern, size_t uSize, int /*iMode*/)
{
    if (uSize == 0) return 0;
    const FD          fd = fdOPEN_FILE(cpPath, O_RDONLY);
    const std::string sPattern(cpPattern, strnlen(cpPattern, uSize));
    std::string       sText;
    if (!fd.bOpen() || (!iREAD_ALL(fd.iGet(), sText, uFILE_MAX) && errno != EFBIG)) return 0;
    for (std::string_view svRest = sText; !svRest.empty();) {
        const size_t      uEnd = std::min(svRest.find('\n'), svRest.size());
        const std::string sLine = sCLEAN_LINE(svRest.substr(0, uEnd));
        if (iPATTERN_HIT(sPattern, sLine)) {
            iTEXT_COPY(cpPattern, uSize, sLine);
            return 1;
        }
        svRest.remove_prefix(std::min(uEnd + 1, svRest.size()));
    }
    return 0;
}

int i_FILE_DELETE(const char* cpPath, str_log sctLog)
{
    if (unlink(cpPath) == 0) return 1;
    TRACE_BY(sctLog, "cannot delete \"%s\": %s", cpPath, std::strerror(errno));
    return 0;
}

void i_check_fclose_errno(int iErrno, int /*iOne*/)
{
    v_STDERR("cannot close a written file: %s", std::strerror(iErrno));
    FPROT(0, "cannot close a written file: %s", std::strerror(iErrno));
}
