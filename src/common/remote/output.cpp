#include "output.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "../base/descriptor.h"
#include "../text/text.h"

namespace {

constexpr size_t uLAST_LINE_MAX = 65536;
// Of a list's element beside its text: an endless run of empty lines costs, too.
constexpr size_t uPLACE_IN_LIST = 64;

bool bC1_CONTROL(const std::string& sText, size_t u)
{
    return sText[u] == '\xC2' && u + 1 < sText.size() &&
           static_cast<unsigned char>(sText[u + 1]) < 0xA0;
}

/* Control characters beyond ASCII, C2 80 to C2 9F, in valid UTF-8. */
void DROP_C1(std::string& sText)
{
    size_t uTo = sText.find('\xC2');
    if (uTo == std::string::npos) return;
    for (size_t u = uTo; u < sText.size(); ++u) {
        if (bC1_CONTROL(sText, u))
            ++u;
        else
            sText[uTo++] = sText[u];
    }
    sText.resize(uTo);
}

}  // namespace

void OUTPUT_SINK::Take(std::string_view svBytes)
{
    ToFile(svBytes);
    while (!svBytes.empty()) {
        const size_t           uEnd = svBytes.find('\n');
        const std::string_view svPiece = svBytes.substr(0, uEnd);
        if (!svPiece.empty() && (m_uLines < uOUTPUT_MAX || m_sLine.size() < uLAST_LINE_MAX))
            AddToLine(svPiece);
        m_uLines += svPiece.size();
        if (uEnd == std::string_view::npos) return;
        svBytes.remove_prefix(uEnd + 1);
        Line();
    }
}

void OUTPUT_SINK::AddToLine(std::string_view svBytes)
{
    const size_t uOld = m_sLine.size();
    m_sLine.resize(uOld + svBytes.size());
    char* cpTo = m_sLine.data() + uOld;
    for (const char c : svBytes) {
        m_cBits = static_cast<char>(m_cBits | c);
        if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7f)
            *cpTo++ = c;
        else if (c == '\t')
            *cpTo++ = ' ';
    }
    m_sLine.resize(static_cast<size_t>(cpTo - m_sLine.data()));
}

void OUTPUT_SINK::Finish()
{
    if (!m_sLine.empty()) Line();
    if (m_bDropped && m_output.LL_Lines != nullptr)
        InsLastLLf(m_output.LL_Lines, m_output.sLastLine.size() + 1, m_output.sLastLine.c_str());
    m_bDropped = false;
    if (m_uFile <= uOUTPUT_MAX) return;
    m_uFile = 0;
    ToFile("\n" + m_output.sLastLine + "\n");
}

/* Invalid bytes become three each: what no list can take is cut before that. */
void OUTPUT_SINK::Line()
{
    if (m_bDropped && m_sLine.empty()) return;
    const bool bKeep = m_output.LL_Lines != nullptr && m_uLines + uPLACE_IN_LIST <= uOUTPUT_MAX;
    if (!bKeep && m_sLine.size() > uLAST_LINE_MAX) m_sLine.resize(uLAST_LINE_MAX);
    if ((std::exchange(m_cBits, '\0') & 0x80) != 0) {
        m_sLine = sVALID_UTF8(m_sLine);
        DROP_C1(m_sLine);
    }
    const std::string_view svStart = svTEXT_CUT(m_sLine, uLAST_LINE_MAX);
    const size_t           uText = std::min(svStart.find_first_not_of(' '), svStart.size());
    if (uText < svStart.size()) m_output.sLastLine = svStart;
    if (svStart.substr(uText).starts_with("STATUS=")) m_output.sStatusLine = svStart;
    if (!m_output.sWantedStart.empty() && svStart.starts_with(m_output.sWantedStart))
        m_output.sWantedLine = svStart;
    m_uLines += uPLACE_IN_LIST;
    if (m_uLines > uOUTPUT_MAX)
        m_bDropped = true;
    else if (m_output.LL_Lines != nullptr)
        InsLastLLf(m_output.LL_Lines, m_sLine.size() + 1, m_sLine.c_str());
    // A long line gives its memory back.
    if (m_sLine.capacity() > uLAST_LINE_MAX)
        std::string().swap(m_sLine);
    else
        m_sLine.clear();
}

void OUTPUT_SINK::ToFile(std::string_view svBytes)
{
    m_uFile += svBytes.size();
    if (m_output.iFile < 0 || m_uFile > uOUTPUT_MAX) return;
    if (!iWRITE_ALL(m_output.iFile, svBytes) && m_output.iFileErrno == 0)
        m_output.iFileErrno = errno;
}
