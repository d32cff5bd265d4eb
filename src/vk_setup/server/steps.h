/* The lines that the setup and the check print, one for each thing looked at. */
#pragma once

#include <string>

/* How a step of the setup ended. */
enum STEP {
    STEP_THERE,   // nothing had to be done
    STEP_MADE,    // done now
    STEP_TO_DO,   // somebody else has to do it
    STEP_FAILED,  // it could not be done
};

/* One line on standard output. A step that failed for want of rights gets a hint.
   Result  1 there or made, 0 to do or failed */
int iSTEP(STEP eStep, const std::string& sText);
/* A line that goes on with what the step before said. */
void v_STEP_MORE(const std::string& sText);

/* Lines of the check: what is right; what is wrong, with the cause and the command
   that mends it; the same where no command does it, with advice. */
void v_GOOD(const std::string& sWhat);
void v_WRONG(const std::string& sWhat, const std::string& sCause, const std::string& sCommand);
void v_WRONG_ADVICE(const std::string& sWhat, const std::string& sCause,
                    const std::string& sAdvice);

/* How many lines of the check there were, and how many of them tell of a fault. */
int iCHECKED();
int iFAULTS();

/* Exit code so far: 0, or 1 when a step is to do or has failed or something is wrong. */
int iREPORT_EXIT();
