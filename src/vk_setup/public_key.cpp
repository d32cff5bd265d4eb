#include "public_key.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "common/base/descriptor.h"
#include "common/lines/standard_error.h"
#include "common/text/text.h"

namespace {

constexpr std::string_view asvType[] = {
    "ssh-ed25519",
    "ssh-rsa",
    "ecdsa-sha2-nistp256",
    "ecdsa-sha2-nistp384",
    "ecdsa-sha2-nistp521",
    "sk-ssh-ed25519@openssh.com",
    "sk-ecdsa-sha2-nistp256@openssh.com",
};

constexpr size_t uFILE_MAX = size_t{64} * 1024 - 1;

bool bTYPE(std::string_view sv)
{
    return std::find(std::begin(asvType), std::end(asvType), sv) != std::end(asvType);
}

int iBASE64(char c)
{
    const size_t uAt =
        std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/")
            .find(c);
    return uAt == std::string_view::npos ? -1 : static_cast<int>(uAt);
}

int iDECODE(std::string_view sv, std::string& sBytes)
{
    if (sv.empty() || sv.size() % 4 != 0) return 0;
    uint32_t uBits = 0;
    int      iBits = 0;
    while (sv.ends_with('=') && sBytes.empty() && sv.size() % 4 != 2) sv.remove_suffix(1);
    for (const char c : sv) {
        const int iValue = iBASE64(c);
        if (iValue < 0) return 0;
        uBits = uBits << 6U | static_cast<uint32_t>(iValue);
        iBits += 6;
        if (iBits < 8) continue;
        iBits -= 8;
        sBytes += static_cast<char>(uBits >> static_cast<unsigned>(iBits) & 255U);
    }
    return 1;
}

/* A key is a row of texts, each behind its length in four bytes; the first is its
   type. So a key that lost its end in a paste is told from a whole one. */
bool bWHOLE(const PUBLIC_KEY& key)
{
    std::string sBytes;
    if (!iDECODE(key.sBlob, sBytes)) return false;
    int    iTexts = 0;
    size_t uAt = 0;
    while (uAt < sBytes.size()) {
        if (sBytes.size() - uAt < 4) return false;
        size_t uLength = 0;
        for (int i = 0; i < 4; ++i)
            uLength = uLength << 8U | static_cast<unsigned char>(sBytes[uAt++]);
        if (uLength > sBytes.size() - uAt) return false;
        if (iTexts++ == 0 && sBytes.compare(uAt, uLength, key.sType) != 0) return false;
        uAt += uLength;
    }
    return iTexts >= 2;
}

/* A word that would be an option where the line is read again, or part a line of
   authorized_keys otherwise, is left out of a comment. */
bool bCOMMENT_WORD(const std::string& sWord)
{
    return !sWord.starts_with('-') && sWord.find_first_of("\"\\") == std::string::npos;
}

/* A file stands for the words in it. */
int iUNFOLD(const std::vector<std::string>& asWord, std::vector<std::string>& asAll,
            std::string& sReason)
{
    for (const std::string& sWord : asWord) {
        const bool bFile = sWord.starts_with('/') || sWord.starts_with("./") ||
                           sWord.starts_with("../") || sWord.ends_with(".pub");
        std::string sText = sWord;
        if (bFile && (!iREAD_FILE(sWord, sText, uFILE_MAX) || sText.empty()))
            return iREASON(sReason, "cannot read \"" + sONE_LINE(sWord) + "\" as a key");
        if (sText.find("PRIVATE KEY") != std::string::npos)
            return iREASON(
                sReason,
                "that is a private key, which must stay on the server; give the public one");
        for (std::string& s : asKEY_LINE_WORDS(sONE_LINE(sText))) asAll.push_back(std::move(s));
    }
    return 1;
}

}  // namespace

std::vector<std::string> asKEY_LINE_WORDS(std::string_view svLine)
{
    std::vector<std::string> asWord;
    bool                     bQuoted = false;
    bool                     bInside = false;
    char                     cBefore = 0;
    for (const char c : svLine) {
        if (c == '"' && cBefore != '\\') bQuoted = !bQuoted;
        cBefore = c;
        if (!bQuoted && (c == ' ' || c == '\t')) {
            bInside = false;
            continue;
        }
        if (!bInside) asWord.emplace_back();
        bInside = true;
        asWord.back() += c;
    }
    return asWord;
}

int iKEY_PLACE(const std::vector<std::string>& asWord)
{
    if (asWord.empty() || asWord[0].starts_with('#')) return -1;
    // The type stands first, or behind one word of options.
    for (size_t u = 0; u < 2 && u + 1 < asWord.size(); ++u)
        if (bTYPE(asWord[u])) return static_cast<int>(u);
    return -1;
}

int iPUBLIC_KEYS(const std::vector<std::string>& asWord, std::vector<PUBLIC_KEY>& keys,
                 std::string& sReason)
{
    std::vector<std::string> asAll;
    if (!iUNFOLD(asWord, asAll, sReason)) return 0;
    for (size_t u = 0; u < asAll.size(); ++u) {
        if (bTYPE(asAll[u])) {
            keys.push_back({asAll[u], u + 1 < asAll.size() ? asAll[u + 1] : "", ""});
            ++u;
        } else if (keys.empty()) {
            sReason = "\"" + sONE_LINE(svTEXT_CUT(asAll[u], 40)) +
                      "\" is not a public key; it begins with a type such as ssh-ed25519";
            return 0;
        } else if (bCOMMENT_WORD(asAll[u])) {
            std::string& sComment = keys.back().sComment;
            sComment += (sComment.empty() ? "" : " ") + asAll[u];
        }
    }
    const auto broken =
        std::find_if(keys.begin(), keys.end(), [](const PUBLIC_KEY& key) { return !bWHOLE(key); });
    if (keys.empty()) sReason = "no key given";
    if (broken != keys.end())
        sReason = "the " + broken->sType + " key is incomplete; copy it again";
    return !keys.empty() && broken == keys.end();
}
