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
