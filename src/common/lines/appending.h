/* Names of files, and appending lines to files. */
#pragma once

#include <string>
#include <string_view>

/* svName as a piece of a file name: "/", control characters and a leading "."
   replaced by "_"; at most 200 bytes (sSHORT_NAME). */
std::string szFILE_NAME(std::string_view svName);

/* svName in at most uMax bytes (40 or more): a longer one has a hash of the whole in
   place of its middle, so that two that differ anywhere stay apart. */
std::string sSHORT_NAME(std::string_view svName, size_t uMax);

/* Opens a file for appending (mode 0640, closed on exec) and makes its directory
   where that is missing. Result  the descriptor, or -1: errno says why */
int iOPEN_APPEND(const std::string& sFile);

/* Appends a line (without its line feed) to a file, "the cpWhat", by one write. It begins on
   a line of its own, whatever a writer that was cut off has left; what cannot be written
   whole is taken back. A failure is told on standard error, once for cpKey (null: for
   cpWhat). Result 1 it is there. */
int APPEND_LINE(const char* cpWhat, const std::string& sFile, const std::string& sLine,
                const char* cpKey = nullptr);
