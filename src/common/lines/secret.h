/* Passwords that no line may show. They are masked where a text leaves for a trace, the
   protocol, the info output, a terminal or an error line, never in what is judged or stored. */
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

/* Whose texts may hold a password. */
enum SECRET_PLACE {
    SECRET_OF_CLIENT,    // statements, command lines, what programs write
    SECRET_OF_DATABASE,  // what the database library says of a connection
};

/* A password that this run has read (empty: none). One shorter than four characters
   would be found everywhere, so it is not searched for: of texts that may hold it
   sFOREIGN shows nothing. */
void v_SECRET(std::string_view svPassword, SECRET_PLACE ePlace = SECRET_OF_CLIENT);

/* A password that this run hands to nobody, but its owner may: searched for where it is
   long enough, and nothing is left out for a shorter one. */
void v_SECRET_SEEN(std::string_view svPassword);

/* A value of a line, every password in it replaced by "***". Of a message of the
   program's own catalogue only the text that came from elsewhere. */
std::string sMASKED(std::string_view svText);

/* A statement, a command line or a text of a library or a program. */
std::string sFOREIGN(std::string_view svText, SECRET_PLACE ePlace = SECRET_OF_CLIENT);

/* Further passwords while it lives, such as those of one row of many. */
class SECRETS_HERE {
public:
    SECRETS_HERE(std::initializer_list<std::string_view> passwords);
    ~SECRETS_HERE();
    SECRETS_HERE(const SECRETS_HERE&) = delete;
    SECRETS_HERE& operator=(const SECRETS_HERE&) = delete;

private:
    std::vector<std::string> m_asBefore;
    bool                     m_bShortBefore;
};
