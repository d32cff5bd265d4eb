/* A walk over the keys of one JSON object that hands out slices of its text: nothing
   is built, nothing is copied. Numbers, words and nested values are taken as they
   stand; the JSON library looks at the lines that matter. */
#pragma once

#include <string_view>

class LINE_KEYS {
public:
    explicit LINE_KEYS(std::string_view svLine);

    /* The next key (without quotes) and its value (with them, where it is a text).
       false: there is none; bWhole then tells whether the object was complete. */
    bool bNext(std::string_view& svKey, std::string_view& svValue);
    bool bWhole() const { return m_bWhole; }

private:
    void v_BLANKS();
    bool bCharacter(char c);
    bool bText(std::string_view& svText);
    bool bNested(std::string_view& svValue);
    bool bValue(std::string_view& svValue);

    std::string_view m_sv;  // what is left
    bool             m_bFirst = true;
    bool             m_bGood = true;
    bool             m_bWhole = false;
};

/* The text of a slice between its quotes, escapes as they stand; empty for a value
   that is no text. */
inline std::string_view svINSIDE_QUOTES(std::string_view svValue)
{
    return svValue.size() >= 2 && svValue[0] == '"' ? svValue.substr(1, svValue.size() - 2)
                                                    : std::string_view{};
}

/* ---- the walk itself, which compilers put into the loop over millions of keys ---------- */

inline LINE_KEYS::LINE_KEYS(std::string_view svLine) : m_sv(svLine)
{
    v_BLANKS();
    m_bGood = bCharacter('{');
}

inline void LINE_KEYS::v_BLANKS()
{
    while (!m_sv.empty() && (m_sv[0] == ' ' || m_sv[0] == '\t' || m_sv[0] == '\r'))
        m_sv.remove_prefix(1);
}

inline bool LINE_KEYS::bCharacter(char c)
{
    v_BLANKS();
    if (m_sv.empty() || m_sv[0] != c) return false;
    m_sv.remove_prefix(1);
    return true;
}

/* A text ends at a quote with an even number of backslashes before it. */
inline bool LINE_KEYS::bText(std::string_view& svText)
{
    v_BLANKS();
    if (m_sv.empty() || m_sv[0] != '"') return false;
    for (size_t u = m_sv.find('"', 1); u != m_sv.npos; u = m_sv.find('"', u + 1)) {
        size_t uBackslashes = 0;
        while (m_sv[u - 1 - uBackslashes] == '\\') uBackslashes++;
        if (uBackslashes % 2 != 0) continue;
        svText = m_sv.substr(0, u + 1);
        m_sv.remove_prefix(u + 1);
        return true;
    }
    return false;
}

/* A list or an object, to the bracket that closes it. */
inline bool LINE_KEYS::bNested(std::string_view& svValue)
{
    const std::string_view svFrom = m_sv;
    int                    iDepth = 0;
    do {
        if (m_sv.empty()) return false;
        std::string_view svText;
        if (m_sv[0] == '"') {
            if (!bText(svText)) return false;
            continue;
        }
        iDepth += (m_sv[0] == '[' || m_sv[0] == '{') - (m_sv[0] == ']' || m_sv[0] == '}');
        m_sv.remove_prefix(1);
    } while (iDepth > 0);
    svValue = svFrom.substr(0, svFrom.size() - m_sv.size());
    return true;
}

inline bool LINE_KEYS::bValue(std::string_view& svValue)
{
    v_BLANKS();
    if (m_sv.empty()) return false;
    if (m_sv[0] == '"') return bText(svValue);
    if (m_sv[0] == '[' || m_sv[0] == '{') return bNested(svValue);
    const size_t uEnd = m_sv.find_first_of(",}] \t\r");
    if (uEnd == m_sv.npos || uEnd == 0) return false;
    svValue = m_sv.substr(0, uEnd);
    m_sv.remove_prefix(uEnd);
    return true;
}

inline bool LINE_KEYS::bNext(std::string_view& svKey, std::string_view& svValue)
{
    if (!m_bGood || m_bWhole) return false;
    m_bGood = false;
    if (bCharacter('}')) {
        v_BLANKS();
        m_bWhole = m_sv.empty();
        return false;
    }
    if (!m_bFirst && !bCharacter(',')) return false;
    m_bFirst = false;
    if (!bText(svKey) || !bCharacter(':') || !bValue(svValue)) return false;
    svKey = svINSIDE_QUOTES(svKey);
    m_bGood = true;
    return true;
}
