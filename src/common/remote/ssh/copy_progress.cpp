#include "copy_progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "../../text/text.h"
#include "../../unix/cm_hal_pipe.h"

namespace fs = std::filesystem;

namespace {

constexpr long lSMALL = 65536;  // a file that is gone before anybody can read the line

/* The entry of the process's descriptor on the source file, or "". */
std::string sFIND_DESCRIPTOR(const COPY_PROGRESS& progress, pid_t iPid)
{
    std::error_code   error;
    const std::string sProcess = "/proc/" + std::to_string(iPid);
    for (fs::directory_iterator it(sProcess + "/fd", error), end; !error && it != end;
         it.increment(error)) {
        std::error_code ignored;
        if (fs::read_symlink(it->path(), ignored).string() == progress.sSource)
            return sProcess + "/fdinfo/" + it->path().filename().string();
    }
    return {};
}

long lPOSITION(const std::string& sDescriptor)
{
    std::ifstream info(sDescriptor);
    std::string   sKey;
    long          lPosition = -1;
    info >> sKey >> lPosition;
    return info ? lPosition : -1;
}

void SHOW(COPY_PROGRESS& progress)
{
    const double dMiB = 1024.0 * 1024.0;
    const double dSeconds = static_cast<double>(std::max(1L, lNOW_MS() - progress.lBegin)) / 1000.0;
    const double dDone = static_cast<double>(progress.lPosition);
    std::fprintf(stderr, "\r%s: %.1f of %.1f MiB, %d %%, %.1f MiB/s\033[K", progress.sName.c_str(),
                 dDone / dMiB, static_cast<double>(progress.lSize) / dMiB,
                 static_cast<int>(progress.lPosition * 100 / std::max(1L, progress.lSize)),
                 dDone / dMiB / dSeconds);
    std::fflush(stderr);
    progress.bShown = true;
}

}  // namespace

COPY_PROGRESS::~COPY_PROGRESS()
{
    if (bShown) std::fputs("\r\033[K", stderr);
}

COPY_PROGRESS::COPY_PROGRESS(const std::string& sFile, long lBytes)
    : sName(sONE_LINE(fs::path(sFile).filename().string())),
      lSize(lBytes),
      lBegin(lNOW_MS()),
      bTerminal(isatty(STDERR_FILENO) != 0 && lBytes > lSMALL)
{
    std::error_code error;
    sSource = fs::canonical(sFile, error).string();
}

int iPROGRESS_SHOW(COPY_PROGRESS& progress, pid_t iPid)
{
    if (progress.sDescriptor.empty()) progress.sDescriptor = sFIND_DESCRIPTOR(progress, iPid);
    if (progress.sDescriptor.empty()) return 0;
    const long lPosition = lPOSITION(progress.sDescriptor);
    if (lPosition < 0 || lPosition == progress.lPosition) return 0;
    progress.lPosition = lPosition;
    if (progress.bTerminal) SHOW(progress);
    return 1;
}
