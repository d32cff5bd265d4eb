#include "output.h"

#include <unistd.h>

#include "../text/secret.h"
#include "../text/text.h"

namespace {

constexpr size_t uLAST_LINE_MAX = 65536;
// Of a list's element beside its text: an endless run of empty lines costs, too.
constexpr size_t uPLACE_IN_LIST = 64;

/* What a person and a pattern see of a line: no control characters, valid UTF-8,
   no password. */
std::string sCLEAN(std::string_view svRaw)
{
    std::string sText;
    sText.reserve(svRaw.size());
    for (const char c : svRaw) {
        if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7f) sText += c;
    }
    sText = sMASKED(sVALID_UTF8(sText));
    // Control characters beyond ASCII: C2 80 to C2 9F.
    for (size_t u = sText.find('\xC2'); u != std::string::npos; u = sText.find('\xC2', u)) {
        const bool bControl =
            u + 1 < sText.size() && static_cast<unsigned char>(sText[u + 1]) < 0xA0;
        if (bControl)
            sText.erase(u, 2);
        else
            ++u;
    }
    return sText;
}

}  // namespace

void OUTPUT_SINK::Take(std::string_view svBytes)
{
    ToFile(svBytes);
    while (!svBytes.empty()) {
        const size_t           uEnd = svBytes.find('\n');
        const std::string_view svPiece = svBytes.substr(0, uEnd);
        if (m_uLines < uOUTPUT_MAX || m_sLine.size() < uLAST_LINE_MAX) m_sLine += svPiece;
        m_uLines += svPiece.size();
        if (uEnd == std::string_view::npos) return;
        svBytes.remove_prefix(uEnd + 1);
        Line();
    }
}

void OUTPUT_SINK::Finish()
{
    if (!m_sLine.empty()) Line();
    if (m_bDropped && m_output.LL_Lines != nullptr) {
        InsLastLLf(m_output.LL_Lines, m_output.sLastLine.size() + 1, m_output.sLastLine.c_str());
    }
    m_bDropped = false;
    if (m_uFile <= uOUTPUT_MAX) return;
    m_uFile = 0;
    ToFile("\n" + m_output.sLastLine + "\n");
}

void OUTPUT_SINK::Line()
{
    const std::string sText = sCLEAN(m_sLine);
    m_sLine.clear();
    if (sText.find_first_not_of(' ') != std::string::npos) m_output.sLastLine = sText;
    if (sText.substr(0, sText.find_first_not_of(' ') + 7).ends_with("STATUS=")) {
        m_output.sStatusLine = sText;
    }
    m_uLines += uPLACE_IN_LIST;
    if (m_uLines > uOUTPUT_MAX) {
        m_bDropped = true;
    } else if (m_output.LL_Lines != nullptr) {
        InsLastLLf(m_output.LL_Lines, sText.size() + 1, sText.c_str());
    }
}

void OUTPUT_SINK::ToFile(std::string_view svBytes)
{
    m_uFile += svBytes.size();
    if (m_output.iFile < 0 || m_uFile > uOUTPUT_MAX) return;
    while (!svBytes.empty()) {
        const ssize_t iWritten = write(m_output.iFile, svBytes.data(), svBytes.size());
        if (iWritten <= 0) return;
        svBytes.remove_prefix(static_cast<size_t>(iWritten));
    }
}
