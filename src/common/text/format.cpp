/* Formats of statements and command lines. */
#include "format.h"

#include <cstring>

namespace {

/* A number never stands where a text is quoted, nor a text where a bare number
   is expected: either would leave the value unquoted. */
bool bKIND_FITS(char cConversion, FORMAT_VALUE::KIND eKind)
{
    switch (cConversion) {
        case 'd':
            return eKind == FORMAT_VALUE::NUMBER;
        case 'c':
            return eKind == FORMAT_VALUE::CHARACTER;
        case 's':
            return eKind != FORMAT_VALUE::NUMBER && eKind != FORMAT_VALUE::CHARACTER;
        default:
            return false;
    }
}

}  // namespace

int iFORMAT_SPLIT(const char* cpFormat, std::span<const FORMAT_VALUE> values,
                  std::vector<FORMAT_PIECE>& pieces)
{
    pieces.clear();
    size_t      uValue = 0;
    const char* cp = cpFormat;
    while (*cp != '\0') {
        const size_t uLiteral = std::strcspn(cp, "%");
        if (uLiteral > 0) pieces.push_back({{cp, uLiteral}, nullptr});
        cp += uLiteral;
        if (*cp == '\0') break;
        cp++;
        if (*cp == '%') {
            pieces.push_back({{cp++, 1}, nullptr});
            continue;
        }
        if (cp[0] == 'l' && cp[1] == 'd') cp++;
        if (uValue >= values.size() || !bKIND_FITS(*cp, values[uValue].eKind)) return 0;
        pieces.push_back({{}, &values[uValue++]});
        cp++;
    }
    return uValue == values.size();
}

std::string sFORMAT_BARE(const FORMAT_VALUE& value)
{
    return value.eKind == FORMAT_VALUE::NUMBER ? std::to_string(value.lNumber)
                                               : std::string(value.svText);
}
