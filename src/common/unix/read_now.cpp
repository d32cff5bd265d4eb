/* What a child has written. */
#include "read_now.h"

#include <algorithm>
#include <cerrno>

#include "../base/descriptor.h"

size_t uREAD_NOW(FD& fd, std::string& sText, size_t uMax)
{
    static char acPiece[65536];
    size_t      uRead = 0;
    while (uRead < uMax && fd.bOpen()) {
        const ssize_t lRead = lREAD(fd.iGet(), acPiece, std::min(sizeof acPiece, uMax - uRead));
        if (lRead == 0 || (lRead < 0 && errno != EAGAIN)) fd.Close();
        if (lRead <= 0) break;
        sText.append(acPiece, static_cast<size_t>(lRead));
        uRead += static_cast<size_t>(lRead);
    }
    return uRead;
}
