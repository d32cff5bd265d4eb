/* Files: existence, search, deletion. */
#include "file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "../log/protocol.h"
#include "../text/holder.h"
#include "../text/pattern.h"
#include "../text/standard_error.h"
#include "../text/text.h"

namespace {

/* The line buffer that getline lets grow. */
struct LINE {
    char*  cpText = nullptr;
    size_t uSpace = 0;

    LINE() = default;
    LINE(const LINE&) = delete;
    LINE& operator=(const LINE&) = delete;
    ~LINE() { std::free(cpText); }
};

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
    const STREAM pFile{std::fopen(cpPath, "re")};
    if (!pFile) return 0;
    const std::string sPattern(cpPattern, strnlen(cpPattern, uSize));
    LINE              line;
    while (true) {
        const ssize_t iLength = getline(&line.cpText, &line.uSpace, pFile.get());
        if (iLength < 0) return 0;
        const std::string sLine = sCLEAN_LINE({line.cpText, static_cast<size_t>(iLength)});
        if (!iPATTERN_HIT(sPattern, sLine)) continue;
        iTEXT_COPY(cpPattern, uSize, sLine);
        return 1;
    }
}

int i_FILE_DELETE(const char* cpPath, str_log sctLog)
{
    if (unlink(cpPath) == 0) return 1;
    if (sctLog.iLogLevel > 0)
        WRITE_TRACE(&sctLog, "cannot delete \"%s\": %s", cpPath, std::strerror(errno));
    return 0;
}

void i_check_fclose_errno(int iErrno, int /*iOne*/)
{
    v_STDERR("cannot close a written file: %s", std::strerror(iErrno));
    FPROT(0, "cannot close a written file: %s", std::strerror(iErrno));
}
