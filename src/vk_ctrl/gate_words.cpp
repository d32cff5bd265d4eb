/* The command lines that a server forms for its work on a client, and no others. Variable
   parts are checked, so that no argument can send
   a program elsewhere: to another file, to another option, to another folder. */
#include <algorithm>
#include <cctype>

#include "gate.h"

namespace {

constexpr size_t uWORDS_MAX = 12;

/* Words stand for themselves; in braces: {host} a name or address, {name} a part of a
   file name, {path} a relative path, {text} anything without "," and ":", {rest} anything
   without a further "NAME=". */
struct FORM {
    WORK             eWork;
    std::string_view asvWord[uWORDS_MAX];
};

constexpr FORM asctForm[] = {
    // clang-format off
    {WORK_RUN, {"qtc", "-h"}},
    {WORK_RUN, {"qtc_smdr", "-h"}},
    {WORK_RUN, {"qtc", "-b", "-s", "NULL:64:32", "-S", "http://_REMOTE_CLIENT_:11000", "gv_rw_ini:vk.ini"}},
    {WORK_RUN, {"qtc", "-b", "-s", "NULL:64:32", "-S", "{host}", "gv_rw_ini:vk.ini"}},
    {WORK_RUN, {"qtc", "-b", "-d", ".", "-s", "bck_test_{name}.tmp", "-S", "{host}", "/etc/velka2000.ini"}},
    {WORK_RUN, {"qtc_smdr", "-b", "-d", ".", "-s", "bck_test_{name}.tmp", "-S", "{host}", "-N",
                "{name}:{name}.NetWare File System:{name}:{text}:{rest}:0", "SYS:etc/hosts"}},
    {WORK_RUN, {"qtc_ndmp", "-D", "-s", "dir", "-a", "auth=md5,server={host},user={text},passwd={rest}"}},
    {WORK_RUN, {"vk_client", "-r", "-f", "usefile", "-n", "gv_rw_ini:vk.ini", "-m", "f", "-s", "version=^", "-v", "1"}},
    {WORK_RUN, {"vk_client", "-r", "-f", "usefile", "-n", "gv_rw_ini:vk.ini", "-m", "f", "-s", "package_name=^", "-v", "1"}},
    {WORK_REMOVE, {"vk_client", "-r", "-f", "usefile", "-n", "gv_rw_work:{path}", "-m", "d"}},
    {WORK_UPDATE, {"vk_execute_update", "{path}"}},
    {WORK_UPDATE, {"vk_execute_update", "{path}", "-f"}},
    // clang-format on
};

bool bIN(std::string_view svChars, char c)
{
    return svChars.find(c) != std::string_view::npos;
}

/* 1: svText can be what svKind stands for, as far as single characters tell. */
bool bTAKES(std::string_view svKind, char c)
{
    const auto uc = static_cast<unsigned char>(c);
    if (svKind == "host") return std::isalnum(uc) != 0 || bIN("._-:", c);
    if (std::iscntrl(uc) != 0) return false;
    if (svKind == "name") return !bIN("/:,", c);
    return svKind != "text" || !bIN(",:", c);
}

/* What only the whole tells. */
bool bIS(std::string_view svKind, std::string_view svText)
{
    if (svKind == "rest") {
        const size_t uComma = svText.find(',');
        return uComma == svText.npos || svText.find('=', uComma) == svText.npos;
    }
    if (svText.empty()) return svKind == "text";
    return svText[0] != '-' &&
           (svKind != "path" ||
            ("/" + std::string(svText) + "/").find("/../") == std::string::npos);
}

/* The longest text that a place takes is tried first. What follows a place holds a
   character that the place does not take, or is the end, so the tries are few. */
bool bMATCHES(std::string_view svWord, std::string_view svForm)
{
    const size_t uPlace = svForm.find('{');
    if (!svWord.starts_with(svForm.substr(0, uPlace))) return false;
    if (uPlace == svForm.npos) return svWord == svForm;
    svWord.remove_prefix(uPlace);
    const size_t           uEnd = svForm.find('}', uPlace);
    const std::string_view svKind = svForm.substr(uPlace + 1, uEnd - uPlace - 1);
    const std::string_view svRest = svForm.substr(uEnd + 1);
    const auto             uTaken = static_cast<size_t>(
        std::find_if(svWord.begin(), svWord.end(), [&](char c) { return !bTAKES(svKind, c); }) -
        svWord.begin());
    for (size_t u = uTaken + 1; u-- > 0;)
        if (bMATCHES(svWord.substr(u), svRest)) return bIS(svKind, svWord.substr(0, u));
    return false;
}

bool bMATCHES(const std::vector<std::string>& asWord, const FORM& form)
{
    const auto* const pEnd = std::find(std::begin(form.asvWord), std::end(form.asvWord), "");
    return std::equal(
        asWord.begin(), asWord.end(), std::begin(form.asvWord), pEnd,
        [](const std::string& sWord, std::string_view svForm) { return bMATCHES(sWord, svForm); });
}

}  // namespace

WORK eWORK(const std::vector<std::string>& asWord, std::string& sPath)
{
    for (const FORM& form : asctForm) {
        if (!bMATCHES(asWord, form)) continue;
        if (form.eWork == WORK_REMOVE) sPath = asWord[5];
        if (form.eWork == WORK_UPDATE) sPath = asWord[1];
        return form.eWork;
    }
    return WORK_NONE;
}
