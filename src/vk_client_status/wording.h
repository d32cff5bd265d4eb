/* What several forms say of a client in words. All are one line and harmless. */
#pragma once

#include <string>

#include "fleet.h"

/* Why it fails: the cause with the words that show it, else the run's message. */
std::string sWHY(const CLIENT& client);

/* The same of a run. */
std::string sWHY_OF(const std::string& sCause, const std::string& sStage,
                    const std::vector<std::string>& asWords, const std::string& sMessage);

/* The message without its identifier. */
std::string sMESSAGE_TEXT(std::string_view svMessage);

/* "3 of 200 clients ..." in one line: how the chosen clients stand. */
std::string sSUMMARY(const COUNTS& counts, size_t uClients);

/* What is to be said before anything else: what could not be read. Empty: nothing. */
std::string sNOTICE(const FLEET& fleet);
