/* Standard error of the clients' runs in a run over many: each line
   names its client; a line of several clients appears once, with their number. */
#pragma once

#include <map>
#include <string>
#include <vector>

struct CHILD_LINES {
    std::vector<std::string>                        asText;    // in the order of their coming
    std::map<std::string, std::vector<std::string>> asClient;  // who said it
    size_t                                          uBytes = 0;
};

/* Takes complete lines of a client's run. They are said later, together, or before the
   memory that they need becomes much. */
void v_TAKE_CHILD_LINES(CHILD_LINES* pLines, const std::string& sClient, const std::string& sText);

/* Says what was taken: "CLIENT: LINE", or "N clients: LINE". */
void v_TELL_CHILD_LINES(CHILD_LINES* pLines);
