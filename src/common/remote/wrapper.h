/* What goes around a command line on its way to a client's shell, and how its
   output is read back.

   Talk with the client's shell, in this order:
     it writes   MARK begin            after its own start-up noise
     it runs     the command line, standard error among standard output
     it writes   an end of line, MARK STATUS, an end of line
   MARK is random per run. The status thus arrives at full width (ssh carries
   eight bits of it, and says 255 for its own failures too), and an output
   without the second mark is one whose connection failed or broke.

   The command's lifeline is the rest of the shell's standard input: when that ends,
   because the limit passed or this process died, the shell ends the command's
   process group. A command that is left to finish has none. */
#pragma once

#include <string>
#include <string_view>

#include "../text/command_line.h"

/* The run's mark. */
const std::string& sRUN_MARK();

/* 1 for programs that are left to finish once they run: half an installation is
   worse than one that nobody waits for. */
int iLEFT_TO_FINISH(std::string_view svCommand);

/* What a POSIX shell is started with: it reads one line of its standard input and
   carries it out, so that no argument vector shows what the line holds. */
extern const char* const cpPOSIX_READER;

/* The line that it then gets, line feed included: runs svCommand with sDirectory
   first in the search path. */
std::string sPOSIX_SCRIPT(std::string_view svCommand, const std::string& sDirectory);

/* The line for the Windows command interpreter that does the same; its programs
   end with the connection. */
std::string sWINDOWS_LINE(std::string_view svCommand, const std::string& sDirectory);

/* What that interpreter is started with where it is to read the line, "& exit" behind
   it, from its standard input. What it says of itself comes before the first mark. */
std::string sWINDOWS_READER(std::string_view svLine);

/* Takes the marks out of a stream. */
class MARK_READER {
public:
    enum STATE { BEFORE, RUNNING, ENDED };

    /* Adds bytes as they came. Returns those that the command has written, as far
       as they can be told from a mark. */
    std::string sFeed(std::string_view svBytes);
    /* The bytes held back, once the stream has ended without a mark. */
    std::string sRest();
    STATE       eState() const { return m_eState; }
    long        lStatus() const { return m_lStatus; }
    /* What came before the first mark: a shell's start-up noise, or the only words
       of a client that runs no shell. */
    const std::string& sNoise() const { return m_sNoise; }

private:
    bool bTakeBegin();
    bool bTakeEnd(std::string& sOutput);

    STATE       m_eState = BEFORE;
    long        m_lStatus = -1;
    size_t      m_uSeen = 0;  // bytes of m_sHeld in which no first mark begins
    std::string m_sHeld;
    std::string m_sNoise;
};
