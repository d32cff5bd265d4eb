/* The message catalogue: every text that a user sees, by identifier and language.
   A message begins with its identifier ("E004-HOSTS", three blanks), which is the
   same in every language; the text after it follows eLang at the moment the
   message is formed. */
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

#include "../common/cm_lang.h"
#include "../common/text/text.h"

enum MESSAGE_ID {
    MSG_E001,
    MSG_E002,
    MSG_E003,
    MSG_E004,
    MSG_E005,
    MSG_E006,
    MSG_E007,
    MSG_E009,
    MSG_E010,
    MSG_E011,
    MSG_E012,
    MSG_E013,
    MSG_E020,
    MSG_E021,
    MSG_E022,
    MSG_I001,
    MSG_I002,
    MSG_I003,
    MSG_I004,
    MSG_I005,
    MSG_I006,
    MSG_I007,
    MSG_I008,
    MSG_I009,
    MSG_I010,
    MSG_I012,
    MSG_I013,
    MSG_I014,
    MSG_I015,
    MSG_I016,
    MSG_W003,
    MSG_W004,
    MSG_W005,
    MSG_W006,
    MSG_W007,
    MESSAGE_COUNT
};

/* The catalogue text in a language, its %s marks unfilled. A language without a
   text of its own gives another's: Bavarian the German, all others the English. */
std::string_view svMESSAGE_TEXT(MESSAGE_ID eId, LANGUAGES eLanguage);

/* The whole message in the language of this run. The values fill the %s marks in
   their order; a text with fewer marks takes the first of them. */
std::string sMESSAGE(MESSAGE_ID eId, std::initializer_list<std::string_view> values);

/* Forms a message into an array, or into uSize bytes at cpDest; cut at a
   character boundary. The values may stand in the destination. */
template<size_t N, class... V>
void MESSAGE(char (&szDest)[N], MESSAGE_ID eId, const V&... values)
{
    iTEXT_SET(szDest, sMESSAGE(eId, {std::string_view(values)...}));
}
template<class... V>
void MESSAGE(char* cpDest, size_t uSize, MESSAGE_ID eId, const V&... values)
{
    iTEXT_COPY(cpDest, uSize, sMESSAGE(eId, {std::string_view(values)...}));
}

/* A message of at most uSize bytes, terminator included, with one value, of which
   only the beginning is taken where the whole would not fit, so that the text around
   it stays complete. */
std::string sMESSAGE_FITTED(size_t uSize, MESSAGE_ID eId, std::string_view svValue);

/* Where in a message the text of another program or a library stands (a database's, a
   client's, a script's): from uBegin to uEnd, an empty range when it has none.
   Result  1 svText is a message of the catalogue in the language of this run, 0 not */
int iMESSAGE_FOREIGN(std::string_view svText, size_t& uBegin, size_t& uEnd);

/* Writes a message into the day protocol. */
void PROT_MESSAGE(MESSAGE_ID eId, std::initializer_list<std::string_view> values);

/* The same, cut to 255 bytes, and as a message line into the info output. */
void ANNOUNCE_MESSAGE(MESSAGE_ID eId, std::initializer_list<std::string_view> values);
