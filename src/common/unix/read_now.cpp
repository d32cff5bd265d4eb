/* What a child has written. */
#include "read_now.h"

#include <cerrno>

#include "../text/descriptor.h"

size_t uREAD_NOW(FD& fd, std::string& sText, size_t uMax)
{
    static char acPiece[65536];
    size_t      uRead = 0;
    while (uRead < uMax && fd.bOpen()) {
        const ssize_t lRead = lREAD(fd.iGet(), acPiece, sizeof acPiece);
        if (lRead > 0) {
            sText.append(acPiece, static_cast<size_t>(lRead));
            uRead += static_cast<size_t>(lRead);
            continue;
        }
        if (lRead == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) fd.Close();
        break;
    }
    return uRead;
}
