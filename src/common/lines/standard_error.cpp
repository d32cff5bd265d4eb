/* Lines on standard error, and the forming of lines in general. */
#include "standard_error.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>

#include "../base/descriptor.h"
#include "../base/immortal.h"
#include "../base/program.h"
#include "../text/text.h"
#include "secret.h"

namespace {

void STDERR_LINE(const std::string& sText)
{
    iWRITE_ALL(STDERR_FILENO, std::string(cpPROGRAM_NAME()) + ": " + sONE_LINE(sText) + "\n");
}

std::string sPRINTED(const char* cpPlace, ...)
{
    va_list args;
    va_start(args, cpPlace);
    std::string s = sFORMATTED(cpPlace, args);
    va_end(args);
    return s;
}

/* A width or precision that is a value of its own ("%.*s") put into its place. */
std::string sWITH_WIDTHS(std::string sPlace, va_list& args)
{
    for (size_t u; (u = sPlace.find('*')) != sPlace.npos;) {
        const int iGiven = va_arg(args, int);
        if (iGiven < 0 && sPlace[u - 1] == '.')
            sPlace.erase(u - 1, 2);  // a precision below 0 is none
        else
            sPlace.replace(u, 1, std::to_string(iGiven));
    }
    return sPlace;
}

/* The text of one place of a format, its value taken off the list. */
std::string sVALUE(const std::string& sGiven, va_list& args)
{
    const std::string sPlace = sWITH_WIDTHS(sGiven, args);
    const char*       cpPlace = sPlace.c_str();
    const char        cKind = sPlace.back();
    if (cKind == '%') return "%";
    if (cKind == 's') {
        const char* cpText = va_arg(args, const char*);
        return sPRINTED(cpPlace, sMASKED(cpText != nullptr ? cpText : "(null)").c_str());
    }
    if (std::string_view("eEfFgGaA").find(cKind) != std::string_view::npos) {
        if (sPlace.find('L') != std::string::npos)
            return sPRINTED(cpPlace, va_arg(args, long double));
        return sPRINTED(cpPlace, va_arg(args, double));
    }
    if (cKind == 'm') return sPRINTED(cpPlace);
    if (cKind == 'p') return sPRINTED(cpPlace, va_arg(args, void*));
    if (sPlace.find_first_of("lzjt") == std::string::npos)
        return sPRINTED(cpPlace, va_arg(args, int));
    return sPRINTED(cpPlace, va_arg(args, long));
}

}  // namespace

std::string sFORMATTED(const char* cpFormat, va_list args)
{
    va_list again;
    va_copy(again, args);
    const int   iLength = std::vsnprintf(nullptr, 0, cpFormat, args);
    std::string s(iLength > 0 ? static_cast<size_t>(iLength) : 0, '\0');
    if (iLength > 0) std::vsnprintf(s.data(), s.size() + 1, cpFormat, again);
    va_end(again);
    return s;
}

std::string sFORMATTED_MASKED(const char* cpFormat, va_list args)
{
    va_list rest;
    va_copy(rest, args);
    std::string sText;
    for (const char* cp = cpFormat; *cp != '\0';) {
        const size_t uLiteral = std::strcspn(cp, "%");
        sText.append(cp, uLiteral);
        cp += uLiteral;
        if (*cp == '\0') break;
        const size_t      uPlace = std::strcspn(cp + 1, "diouxXeEfFgGaAcspm%") + 2;
        const std::string sPlace(cp, cp[uPlace - 1] == '\0' ? uPlace - 1 : uPlace);
        cp += sPlace.size();
        sText += sVALUE(sPlace, rest);
    }
    va_end(rest);
    return sText;
}

std::string sCANNOT(const char* cpVerb, const std::string& sObject)
{
    return std::string("cannot ") + cpVerb + " \"" + sObject + "\": " + cpERRNO(errno);
}

int iCANNOT(const char* cpVerb, const std::string& sObject, std::string& sReason)
{
    return iREASON(sReason, sCANNOT(cpVerb, sObject));
}

int iREASON(std::string& sReason, std::string sText)
{
    sReason = std::move(sText);
    return 0;
}

std::string sSAFE_LINE(const std::string& sText)
{
    return sONE_LINE(sMASKED(sText));
}

void v_STDERR(const char* cpFormat, ...)
{
    va_list args;
    va_start(args, cpFormat);
    const std::string sText = sFORMATTED_MASKED(cpFormat, args);
    va_end(args);
    STDERR_LINE(sText);
}

void v_STDERR_ONCE(const char* cpKey, const char* cpFormat, ...)
{
    static IMMORTAL<std::set<std::string>> told;
    if (!told.Get().insert(cpKey).second) return;
    va_list args;
    va_start(args, cpFormat);
    const std::string sText = sFORMATTED_MASKED(cpFormat, args);
    va_end(args);
    STDERR_LINE(sText);
}
