/* Writes a man page with the program's own table of causes in place of the line that asks
   for it.

   usage: vk_man_causes TEMPLATE PAGE */
#include <fstream>
#include <iostream>

#include "common/remote/cause.h"

namespace {

/* What is empty, but for a user that somebody named. */
constexpr std::string_view asvMOSTLY_EMPTY[] = {"{named}", "{root}"};

/* A text as a line of the page: what begins a line with "." or "'" is no request there, and
   "\" stands for itself. */
std::string sLINE(std::string_view svText)
{
    std::string sLine = svText.starts_with('.') || svText.starts_with('\'') ? "\\&" : "";
    for (const char c : svText) sLine.append(c == '\\' ? "\\e" : std::string(1, c));
    for (const std::string_view sv : asvMOSTLY_EMPTY)
        if (const size_t uAt = sLine.find(sv); uAt != sLine.npos) sLine.erase(uAt, sv.size());
    return sLine + ".\n";
}

void WRITE_TABLE(std::ostream& page)
{
    for (const CAUSE& cause : actCAUSES()) {
        page << ".It Cm " << cause.cpId;
        if (cause.eStage != STAGE_NONE) page << " Pq " << cpSTAGE(cause.eStage);
        page << '\n' << sLINE(cause.cpSentence);
        if (*cause.cpCure != '\0') page << "Cure: " << sLINE(cause.cpCure);
        if (*cause.cpCommand != '\0') page << "Command: " << sLINE(cause.cpCommand);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) return 2;
    std::ifstream from(argv[1]);
    std::ofstream page(argv[2]);
    bool          bTable = false;
    for (std::string sText; std::getline(from, sText);) {
        page << sText << '\n';
        if (sText != ".\\\" The table of causes") continue;
        bTable = true;
        WRITE_TABLE(page);
    }
    if (!bTable) std::cerr << argv[1] << ": no line asks for the table of causes\n";
    return bTable && page.flush().good() ? 0 : 1;
}
